# Peer libraries, linked into single benchmarks only, so that a ratio comes from one run.
find_package(PkgConfig REQUIRED)

find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
target_include_directories(pixels_conversions_bench SYSTEM PRIVATE ${LIBYUV_INCLUDE_DIR})
target_link_libraries(pixels_conversions_bench PRIVATE ${LIBYUV_LIBRARY})
target_compile_definitions(pixels_conversions_bench PRIVATE SCANSTEPS_PEER_LIBYUV)

pkg_check_modules(VIPS REQUIRED IMPORTED_TARGET vips)
target_link_libraries(edges_canny_bench PRIVATE PkgConfig::VIPS)
target_compile_definitions(edges_canny_bench PRIVATE SCANSTEPS_PEER_VIPS)

# Model files. VTK and meshio are measured by export_model_peers.py, which calls them from Python.
find_package(assimp CONFIG REQUIRED)
target_compile_definitions(mesh_writers_bench PRIVATE SCANSTEPS_PEER_ASSIMP)
target_link_libraries(mesh_writers_bench PRIVATE assimp::assimp)

find_path(TURBOJPEG_INCLUDE_DIR turbojpeg.h REQUIRED)
find_library(TURBOJPEG_LIBRARY turbojpeg REQUIRED)
target_compile_definitions(jpeg_decoder_bench PRIVATE SCANSTEPS_PEER_TURBOJPEG)
target_include_directories(jpeg_decoder_bench PRIVATE ${TURBOJPEG_INCLUDE_DIR})
target_link_libraries(jpeg_decoder_bench PRIVATE ${TURBOJPEG_LIBRARY})
