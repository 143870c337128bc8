# Peer libraries, linked into single benchmarks only, so that a ratio comes from one run.
find_package(PkgConfig REQUIRED)

find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
target_include_directories(convert_pixels_bench SYSTEM PRIVATE ${LIBYUV_INCLUDE_DIR})
target_link_libraries(convert_pixels_bench PRIVATE ${LIBYUV_LIBRARY})
target_compile_definitions(convert_pixels_bench PRIVATE SCANSTEPS_PEER_LIBYUV)

pkg_check_modules(VIPS REQUIRED IMPORTED_TARGET vips)
target_link_libraries(features_mcanny_bench PRIVATE PkgConfig::VIPS)
target_compile_definitions(features_mcanny_bench PRIVATE SCANSTEPS_PEER_VIPS)

# Model files. VTK and meshio are measured by export_model_peers.py, which calls them from Python.
find_package(assimp CONFIG REQUIRED)
target_compile_definitions(export_model_bench PRIVATE SCANSTEPS_PEER_ASSIMP)
target_link_libraries(export_model_bench PRIVATE assimp::assimp)

find_path(TURBOJPEG_INCLUDE_DIR turbojpeg.h REQUIRED)
find_library(TURBOJPEG_LIBRARY turbojpeg REQUIRED)
target_compile_definitions(io_baseline_jpeg_bench PRIVATE SCANSTEPS_PEER_TURBOJPEG)
target_include_directories(io_baseline_jpeg_bench PRIVATE ${TURBOJPEG_INCLUDE_DIR})
target_link_libraries(io_baseline_jpeg_bench PRIVATE ${TURBOJPEG_LIBRARY})
