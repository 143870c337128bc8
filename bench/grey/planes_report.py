"""Report section of planes_bench.cpp."""
TITLE = "Planes of features"
