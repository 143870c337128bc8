"""Report section of capture_bench.cpp."""
TITLE = "Capture (1920×1080 YUY2, camera and chain on one core)"
