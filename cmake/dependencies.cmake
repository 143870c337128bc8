# Third-party packages. All of them are Debian packages (scripts/bootstrap.sh) or vcpkg ports.
find_package(Threads REQUIRED)
find_package(JPEG REQUIRED)
find_package(PNG REQUIRED)
find_package(Imath CONFIG REQUIRED)
find_package(Eigen3 CONFIG REQUIRED)
find_package(fmt CONFIG REQUIRED)
find_package(nlohmann_json CONFIG REQUIRED)
find_package(CLI11 CONFIG REQUIRED)

# For the image plug-in. libwebp has no CMake package in Debian 12; elsewhere it may have one.
find_package(TIFF 4.5 REQUIRED)
find_package(WebP CONFIG QUIET)
if(NOT TARGET WebP::webpdemux)
  find_path(WEBP_INCLUDE_DIR webp/decode.h REQUIRED)
  foreach(library IN ITEMS webp webpdemux webpmux)
    find_library(WEBP_${library} ${library} REQUIRED)
    add_library(WebP::${library} UNKNOWN IMPORTED)
    set_target_properties(WebP::${library} PROPERTIES
      IMPORTED_LOCATION ${WEBP_${library}} INTERFACE_INCLUDE_DIRECTORIES ${WEBP_INCLUDE_DIR})
  endforeach()
  target_link_libraries(WebP::webpdemux INTERFACE WebP::webp)
  target_link_libraries(WebP::webpmux INTERFACE WebP::webp)
elseif(NOT TARGET WebP::webpmux)
  add_library(WebP::webpmux ALIAS WebP::libwebpmux)
endif()

# Highway ships a CMake package from 1.0.4 on; older ones have pkg-config files only.
find_package(hwy CONFIG QUIET)
if(NOT TARGET hwy::hwy)
  find_path(HWY_INCLUDE_DIR hwy/highway.h REQUIRED)
  find_library(HWY_LIBRARY hwy REQUIRED)
  add_library(hwy::hwy UNKNOWN IMPORTED)
  set_target_properties(hwy::hwy PROPERTIES
    IMPORTED_LOCATION ${HWY_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${HWY_INCLUDE_DIR})
endif()
