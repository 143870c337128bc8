# libyuv, called by conversions_bench.cpp.
find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
target_include_directories(pixels_conversions_bench SYSTEM PRIVATE ${LIBYUV_INCLUDE_DIR})
target_link_libraries(pixels_conversions_bench PRIVATE ${LIBYUV_LIBRARY})
target_compile_definitions(pixels_conversions_bench PRIVATE SCANSTEPS_PEER_LIBYUV)
