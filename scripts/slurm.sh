#!/usr/bin/env bash
# Runs a command on a Slurm cluster of two nodes that are both this machine: Debian's slurmctld, two slurmd and munged,
# in namespaces of their own, so that neither the machine's network nor another cluster is touched and nothing is left.
#
#   scripts/slurm.sh COMMAND...     SLURM_CONF is set; SLURM_TEST_DIR has pid files and logs (KEEP=1 keeps it)
#
# Needs root. Where that or the namespaces cannot be had it says so and ends with 77.
set -euo pipefail
skip() {
    echo "slurm: skipped, $*" >&2
    exit 77
}

if [ "${1:-}" != --inside ]; then
    [ $# -gt 0 ] || { sed -n '2,8s/^# \{0,1\}//p' "$0"; exit 2; }
    [ "$(id -u)" -eq 0 ] || skip "only root can start the daemons"
    "$(dirname "${BASH_SOURCE[0]}")/bootstrap.sh" slurm || skip "Slurm cannot be installed"
    unshare --mount --net --pid --fork true 2>/dev/null || skip "there are no namespaces"
    SLURM_TEST_DIR=$(mktemp -d "${TMPDIR:-/tmp}/scansteps-slurm-XXXXXX")
    export SLURM_TEST_DIR
    chmod 755 "$SLURM_TEST_DIR"
    code=0
    # When the first process in the namespace ends, the kernel kills all others there.
    unshare --mount --net --pid --fork --kill-child --mount-proc "${BASH_SOURCE[0]}" --inside "$@" || code=$?
    if [ -n "${KEEP:-}" ]; then echo "slurm: logs in $SLURM_TEST_DIR" >&2; else rm -rf "$SLURM_TEST_DIR"; fi
    exit $code
fi
shift

dir=$SLURM_TEST_DIR
host=$(hostname)
ip link set lo up
ip address add 10.77.0.1/24 dev lo
if ! grep -q ' - cgroup ' /proc/self/mountinfo; then # a machine with the second version only
    mount -t tmpfs none /sys/fs/cgroup
    mkdir /sys/fs/cgroup/freezer
    mount -t cgroup -o freezer none /sys/fs/cgroup/freezer || skip "there is no cgroup file system"
fi
mkdir -p "$dir"/{state,n1,n2,etc}
head -c 128 /dev/urandom >"$dir/etc/munge.key"
chmod 600 "$dir/etc/munge.key"
cat >"$dir/etc/slurm.conf" <<CONF
ClusterName=scansteps
SlurmctldHost=$host(10.77.0.1)
SlurmctldPort=17000
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$dir/munge.socket
CredType=cred/munge
MpiDefault=none
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
SchedulerParameters=batch_sched_delay=0,sched_interval=2
SlurmdParameters=config_overrides
SlurmdTimeout=10
KillWait=3
ReturnToService=2
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/%n
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/%n.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/%n.log
NodeName=n1 NodeHostname=$host NodeAddr=10.77.0.1 Port=17001 CPUs=2 RealMemory=2000 State=UNKNOWN
NodeName=n2 NodeHostname=$host NodeAddr=10.77.0.1 Port=17002 CPUs=2 RealMemory=2000 State=UNKNOWN
PartitionName=work Nodes=n1,n2 Default=YES MaxTime=INFINITE State=UP
CONF
echo CgroupPlugin=cgroup/v1 >"$dir/etc/cgroup.conf"
export SLURM_CONF=$dir/etc/slurm.conf

munged --foreground --force --key-file "$dir/etc/munge.key" --socket "$dir/munge.socket" \
    --pid-file "$dir/munged.pid" --log-file "$dir/munged.log" --seed-file "$dir/munged.seed" >/dev/null 2>&1 &
until [ -S "$dir/munge.socket" ]; do sleep 0.1; done
slurmctld -f "$SLURM_CONF" -D >"$dir/slurmctld.out" 2>&1 &
for node in n1 n2; do slurmd -N $node -f "$SLURM_CONF" -D >"$dir/$node.out" 2>&1 & done
for _ in $(seq 100); do
    [ "$(sinfo -h -o %D -t idle 2>/dev/null)" = 2 ] && break
    sleep 0.3
done
if [ "$(sinfo -h -o %D -t idle 2>/dev/null)" != 2 ]; then
    tail -n 5 "$dir"/*.log "$dir"/*.out >&2
    echo "slurm: the cluster does not come up" >&2
    exit 1
fi
code=0
"$@" || code=$?
exit $code
