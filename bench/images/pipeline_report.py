"""Report section of pipeline_bench.cpp."""
import textwrap

TITLE = "Demo pipeline"


def paragraph(size, run):
    return textwrap.fill(f"""The steps of `examples/edges.json` on photographs of {size}, from JPEG file to JPEG file of edges:
{run['real_time']:.1f} ms per frame. The JPEG library alone, called with the same frames and alternating with the pipeline,
takes {run['jpeg_%']:.0f} % of that, the edge detector {run['canny_%']:.0f} %, together {run['jpeg_%'] + run['canny_%']:.0f} %
(target: 85). The rest is two colour conversions, the writer's copy of the frame, and records.""", 120)


def report(runs):
    return "\n\n".join(paragraph(name.split("/", 1)[1].replace("/", "×"), run) for name, run in runs.items())
