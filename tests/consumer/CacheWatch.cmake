# A library that is taken in leaves the cache of the project alone: besides options of its own, nothing
# is to come up between the two calls. What project(), and the search for threads, leave there they may.

find_package(Threads REQUIRED)
find_package(Threads REQUIRED)
include(CheckIPOSupported)
check_ipo_supported(RESULT ignored OUTPUT ignored)
if(UTL_INSTALL)
    include(GNUInstallDirs)  # only who wants it installed is asked where to
endif()

macro(watch_cache)
    get_cmake_property(cache_before CACHE_VARIABLES)
endmacro()

macro(check_cache)
    get_cmake_property(cache_after CACHE_VARIABLES)
    list(REMOVE_ITEM cache_after ${cache_before})
    list(FILTER cache_after EXCLUDE REGEX "^(UTL_|utl_|FETCHCONTENT_|CMAKE_PROJECT_VERSION)")
    if(cache_after)
        message(FATAL_ERROR "utl has written to the cache: ${cache_after}")
    endif()
endmacro()
