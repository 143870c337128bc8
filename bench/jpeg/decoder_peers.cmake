# TurboJPEG, called by decoder_bench.cpp.
find_path(TURBOJPEG_INCLUDE_DIR turbojpeg.h REQUIRED)
find_library(TURBOJPEG_LIBRARY turbojpeg REQUIRED)
target_include_directories(jpeg_decoder_bench PRIVATE ${TURBOJPEG_INCLUDE_DIR})
target_link_libraries(jpeg_decoder_bench PRIVATE ${TURBOJPEG_LIBRARY})
target_compile_definitions(jpeg_decoder_bench PRIVATE SCANSTEPS_PEER_TURBOJPEG)
