"""Report section of batch_bench.cpp."""
import textwrap

TITLE = "Batches"


def report(runs):
    over, few, many = runs["overhead"], runs["memory/100"], runs["memory/2000"]
    return textwrap.fill(f"""Jobs of one picture of 64×48, JPEG to edges as JPEG, one at a time: {over['batch_ms']:.1f} ms a job, the bare
command {over['bare_ms']:.1f} ms, in turns of 500; the batch adds {over['overhead_ms']:.1f} ms a job (target: at most 15): starting the process
from the batch, two lines of the journal that are on disk before it goes on, log and report of the job. 2,000 jobs take
{many['real_time']:.1f} s; the batch itself needs {many['MB']:.1f} MB for them, and {few['MB']:.1f} MB for 100.""", 120)
