# Writes a C++ source that holds the texts of files:
#   cmake -DOUTPUT=parts.cpp -DHEADER=host/parts.h -DNAMESPACE=a::b
#         -DTEXTS=kName=file+file,kOther=file -P embed_text.cmake
# Each name becomes a std::string_view of its files, one after the other.
set(source "#include \"${HEADER}\"\n\nnamespace ${NAMESPACE} {\n\n")
string(REPLACE "," ";" TEXTS "${TEXTS}")
foreach(text IN LISTS TEXTS)
  string(REGEX MATCH "^([^=]+)=(.+)$" matched "${text}")
  set(name ${CMAKE_MATCH_1})
  string(REPLACE "+" ";" files "${CMAKE_MATCH_2}")
  set(bytes "")
  foreach(file IN LISTS files)
    file(READ "${file}" hex HEX)
    string(APPEND bytes "${hex}")
  endforeach()
  string(LENGTH "${bytes}" length)
  if(length EQUAL 0)
    message(FATAL_ERROR "${name}: no text")
  endif()
  string(REGEX REPLACE "(................................................)" "\\1\n" bytes "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND source "static const char ${name}Bytes[] = {\n${bytes}};\n"
         "const std::string_view ${name}(${name}Bytes, sizeof ${name}Bytes);\n\n")
endforeach()
string(APPEND source "}  // namespace ${NAMESPACE}\n")
file(WRITE "${OUTPUT}" "${source}")
