# Gives the platform's interfaces to the build as platform::dlog, platform::vconf,
# platform::capi-system-info, platform::secure-storage and platform::sdp-installer: the platform's own
# library where pkg-config finds it, else the substitute under platform/. With all five found, the
# directory platform/ is not needed.

find_package(PkgConfig REQUIRED)

set(PLATFORM_MISSING "")
foreach(interface IN ITEMS dlog vconf capi-system-info secure-storage sdp-installer)
  pkg_check_modules(PLATFORM_${interface} QUIET IMPORTED_TARGET GLOBAL ${interface})
  if(PLATFORM_${interface}_FOUND)
    add_library(platform::${interface} ALIAS PkgConfig::PLATFORM_${interface})
  else()
    list(APPEND PLATFORM_MISSING ${interface})
  endif()
endforeach()

if(PLATFORM_MISSING)
  list(JOIN PLATFORM_MISSING ", " missing_interfaces)
  set(platform_substitutes ${CMAKE_CURRENT_LIST_DIR}/../platform)
  if(NOT EXISTS ${platform_substitutes}/CMakeLists.txt)
    message(FATAL_ERROR "pkg-config does not find ${missing_interfaces}, "
      "and platform/ is not here to build substitutes from")
  endif()
  message(STATUS "Platform interfaces by substitute: ${missing_interfaces}")
  add_subdirectory(${platform_substitutes} ${CMAKE_BINARY_DIR}/platform)
else()
  message(STATUS "Platform interfaces: all five are the platform's own")
endif()
