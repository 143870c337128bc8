"""Report section of growth_bench.cpp."""
TITLE = "Growth of the other kernels, 640×480 to 7680×4320 (target: at most 1.6)"
