# libvips, called by canny_bench.cpp.
find_package(PkgConfig REQUIRED)
pkg_check_modules(VIPS REQUIRED IMPORTED_TARGET vips)
target_link_libraries(edges_canny_bench PRIVATE PkgConfig::VIPS)
target_compile_definitions(edges_canny_bench PRIVATE SCANSTEPS_PEER_VIPS)
