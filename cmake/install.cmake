# What others find the installed library by: find_package(utl), which gives utl::utl, and pkg-config.
# Both hold no path, so that the folder it is installed to may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(utl INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/utl>)
install(TARGETS utl EXPORT utlTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/utl)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/utl)
install(EXPORT utlTargets NAMESPACE utl:: DESTINATION ${package_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/utlConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/utlConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/utlConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/utlConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/utlConfigVersion.cmake
    DESTINATION ${package_dir})

# Folders outside the prefix, which a distribution may ask for, are named as they are.
set(pc_prefix ${CMAKE_INSTALL_PREFIX})
set(pc_libdir ${CMAKE_INSTALL_LIBDIR})
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    file(RELATIVE_PATH up_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
    string(REGEX REPLACE "/$" "" up_to_prefix "${up_to_prefix}")
    set(pc_prefix "\${pcfiledir}/${up_to_prefix}")
    set(pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
set(pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    set(pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
set(pc_definitions "")
if(UTL_HEAP_ACCOUNTING)
    set(pc_definitions " -DUTL_HEAP_ACCOUNTING")
endif()
set(pc_needs "-pthread")
if(ANDROID)
    set(pc_needs "-pthread -llog")
endif()
# What the library needs itself concerns who links it as an archive.
get_target_property(library_type utl TYPE)
set(pc_libs "")
if(library_type STREQUAL STATIC_LIBRARY)
    set(pc_libs " ${pc_needs}")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/utl.pc.in ${CMAKE_CURRENT_BINARY_DIR}/utl.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/utl.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
