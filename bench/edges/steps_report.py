"""Report section of steps_bench.cpp."""
TITLE = "Steps that find edges, lines, regions and motions, frames of 1920×1088"
