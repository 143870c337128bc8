"""Report section of mser_bench.cpp."""
TITLE = "Stable regions"
