# Installs, in components that become packages: the library; what is needed to build a host
# (headers, CMake package, pkg-config file); the program with its manual and completion.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# What a host may include: the exported classes and what their headers need.
set(KEELSTONE_PUBLIC_HEADERS
  platform/clock.h platform/compressor.h platform/cppsqlite3.h platform/export.h
  platform/filesystem.h platform/ini_reader.h platform/interface_translator.h
  platform/json_reader.h platform/json_value.h
  platform/logger.h platform/mutex.h platform/numbers.h platform/resource_adaptor.h
  platform/text_escape.h platform/thread_wrapper.h
  engine/ksruleinstance.h engine/ksrulerecords.h
  model/bounded_regex.h model/irulebase.h model/ksdatafeature.h model/ksdatapoint.h model/kshistorydata.h
  model/ksruledata.h model/ksruleenums.h model/kstabledatapoint.h
  model/textfeature.h model/textruledata.h model/value_counts.h
  calc/ksrulealgmgr.h calc/ksruleglobalsetting.h calc/rulecalculatealg.h calc/rulesettings.h
  calc/setting_paths.h
  storage/ckscleaner.h storage/cksdboperatebase.h storage/dbwritewrapper.h storage/fs_ksdatasyncmanager.h
  storage/ksblocksettingsql.h
  storage/ksdatacachequeue.h storage/ksdatamanagersql.h storage/ksdomaindatamanager.h storage/ksglobalsettingsql.h
  storage/ksobjectrulesql.h storage/ksvariablerulesql.h
  storage/domain_files.h storage/first_failure.h storage/gone_sources.h
  runs/domain.h runs/intake_stages.h runs/judged_values.h runs/raw_json.h runs/run_evaluation.h runs/run_line.h runs/table_value.h
  results/expectation.h results/explanation.h results/table_changes.h
  results/keelstoneupdateruledata.h diag/fsperformance.h diag/keelstonetestapi.h
  diag/testksrulesqlit.h)

install(TARGETS keelstone EXPORT KeelstoneTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                COMPONENT library NAMELINK_COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keelstone)
foreach(header ${KEELSTONE_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keelstone/${folder}
          COMPONENT development)
endforeach()
install(FILES c/keelstone.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keelstone
        COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Keelstone)
install(EXPORT KeelstoneTargets NAMESPACE Keelstone:: DESTINATION ${package_dir}
        COMPONENT development)
set(KEELSTONE_LIBRARY ${CMAKE_INSTALL_LIBDIR}/libkeelstone.so.${PROJECT_VERSION})
set(KEELSTONE_INCLUDES ${CMAKE_INSTALL_INCLUDEDIR}/keelstone)
configure_package_config_file(cmake/KeelstoneConfig.cmake.in KeelstoneConfig.cmake
                              INSTALL_DESTINATION ${package_dir}
                              PATH_VARS KEELSTONE_LIBRARY KEELSTONE_INCLUDES)
write_basic_package_version_file(KeelstoneConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KeelstoneConfig.cmake
              ${PROJECT_BINARY_DIR}/KeelstoneConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

# The prefix is found from where the .pc files lie, so that the tree can be moved.
file(RELATIVE_PATH KEELSTONE_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/keelstone.pc.in keelstone.pc @ONLY)
configure_file(cmake/keelstone-c.pc.in keelstone-c.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/keelstone.pc ${PROJECT_BINARY_DIR}/keelstone-c.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
