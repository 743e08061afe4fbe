# Installs the library, its public headers, its CMake package and its pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# What a host may include: the exported classes and what their headers need.
set(KEELSTONE_PUBLIC_HEADERS
  platform/clock.h platform/compressor.h platform/cppsqlite3.h platform/export.h
  platform/filesystem.h platform/ini_reader.h platform/interface_translator.h
  platform/json_reader.h platform/json_value.h
  platform/logger.h platform/mutex.h platform/numbers.h platform/resource_adaptor.h platform/text_escape.h
  platform/thread_wrapper.h
  engine/ksruleinstance.h engine/ksrulerecords.h
  model/irulebase.h model/ksdatafeature.h model/ksdatapoint.h model/kshistorydata.h
  model/ksruledata.h model/ksruleenums.h model/kstabledatapoint.h
  calc/ksrulealgmgr.h calc/ksruleglobalsetting.h calc/rulecalculatealg.h calc/rulesettings.h
  storage/ckscleaner.h storage/cksdboperatebase.h storage/dbwritewrapper.h storage/fs_ksdatasyncmanager.h
  storage/ksblocksettingsql.h
  storage/ksdatacachequeue.h storage/ksdatamanagersql.h storage/ksdomaindatamanager.h storage/ksglobalsettingsql.h
  storage/ksobjectrulesql.h storage/ksvariablerulesql.h
  storage/domain_files.h storage/gone_sources.h
  runs/domain.h runs/raw_json.h runs/run_evaluation.h runs/run_line.h runs/table_value.h
  results/expectation.h results/keelstoneupdateruledata.h diag/fsperformance.h diag/keelstonetestapi.h
  diag/testksrulesqlit.h)

install(TARGETS keelstone EXPORT KeelstoneTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keelstone)
foreach(header ${KEELSTONE_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keelstone/${folder})
endforeach()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Keelstone)
install(EXPORT KeelstoneTargets NAMESPACE Keelstone:: DESTINATION ${package_dir})
configure_package_config_file(cmake/KeelstoneConfig.cmake.in KeelstoneConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(KeelstoneConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KeelstoneConfig.cmake
              ${PROJECT_BINARY_DIR}/KeelstoneConfigVersion.cmake
        DESTINATION ${package_dir})

# The prefix is found from where the .pc file lies, so that the tree can be moved.
file(RELATIVE_PATH KEELSTONE_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/keelstone.pc.in keelstone.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/keelstone.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
