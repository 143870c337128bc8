"""Report section of corners_bench.cpp."""
TITLE = "Corner detector"
