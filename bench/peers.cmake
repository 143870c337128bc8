# Peer libraries, linked into single benchmarks only, so that a ratio comes from one run.
