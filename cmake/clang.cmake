# Toolchain of the presets asan, tsan and fuzz: the clang of this release of Debian (as
# scripts/install-dependencies installs it), elsewhere the one that is there.
cmake_host_system_information(RESULT system QUERY DISTRIB_ID DISTRIB_VERSION_ID)
if(system STREQUAL "debian;12")
  set(names clang++-14)
elseif(system STREQUAL "debian;13")
  set(names clang++-19)
else()
  set(names clang++ clang++-19 clang++-14)
endif()
find_program(KEELSTONE_CLANG NAMES ${names} REQUIRED)
string(REPLACE "clang++" "clang" c_compiler ${KEELSTONE_CLANG})
set(CMAKE_CXX_COMPILER ${KEELSTONE_CLANG})
set(CMAKE_C_COMPILER ${c_compiler})
