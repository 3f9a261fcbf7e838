#!/usr/bin/env bash
# Tries slurm-array.sh without a cluster: starts a Slurm of two nodes on this machine, runs the
# script as an array over made-up pictures, lets a task be requeued midway, and compares what comes
# out with a single run. As root, where slurmctld, slurmd and munged are installed:
#
#   QEL=build/release/bin/qel examples/bulk/slurm-trial.sh
#
# Everything lies in a folder of its own and is gone afterwards, daemons included.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
qel=$(realpath "${QEL:-$(command -v qel)}")
work=$(mktemp -d /run/qel-slurm.XXXXXX)
daemons=()
finish() {
  for daemon in "${daemons[@]}"; do kill "$daemon" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap finish EXIT
fail() { echo "$*"; tail -n 20 "$work"/*.log 2>/dev/null; exit 1; }

# One key, two nodes of two processors each under one name of a machine.
chmod 755 "$work"
mkdir -p "$work"/{munge,state,spool1,spool2}
dd if=/dev/urandom of="$work/munge/key" bs=128 count=1 status=none
chmod 600 "$work/munge/key"
munged --foreground --force --key-file="$work/munge/key" --socket="$work/munge.socket" \
  --pid-file="$work/munge/pid" --log-file="$work/munge.log" --seed-file="$work/munge/seed" \
  --num-threads=2 >/dev/null 2>&1 &
daemons+=($!)
host=$(hostname -s)
cat >"$work/slurm.conf" <<CONF
ClusterName=trial
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
AuthInfo=socket=$work/munge.socket
SlurmctldPort=17017
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool-%n
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd-%n.pid
SlurmctldLogFile=$work/slurmctld.log
SlurmdLogFile=$work/slurmd-%n.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
MpiDefault=none
SchedulerParameters=batch_sched_delay=0,sched_interval=1
NodeName=node1 NodeHostname=$host NodeAddr=127.0.0.1 Port=17018 CPUs=2 RealMemory=2000
NodeName=node2 NodeHostname=$host NodeAddr=127.0.0.1 Port=17019 CPUs=2 RealMemory=2000
PartitionName=all Nodes=node1,node2 Default=YES
CONF
export SLURM_CONF=$work/slurm.conf
slurmctld -D >/dev/null 2>&1 &
daemons+=($!)
for node in node1 node2; do
  slurmd -D -N $node >/dev/null 2>&1 &
  daemons+=($!)
done
for _ in $(seq 60); do
  [ "$(sinfo -h -N -t idle 2>/dev/null | wc -l)" = 2 ] && break
  sleep 0.5
done
[ "$(sinfo -h -N -t idle | wc -l)" = 2 ] || fail "the nodes do not come up: $(sinfo -N)"

# The pictures, and what a single run makes of them.
mkdir -p "$work"/{single,array}/out
"$qel" demo -o "$work/pictures" >/dev/null 2>&1
for folder in single array; do
  (cd "$work/$folder" && printf '%s\n' ../pictures/*.png >pictures.txt)
done
(cd "$work/single" && "$qel" run --files-from pictures.txt -o 'out/{stem}.png' --json all.json \
  --progress=none negative "light brightness=20")

cd "$work/array"
job=$(PATH=$(dirname "$qel"):$PATH sbatch --parsable --array=1-6 --cpus-per-task=1 --mem=500 \
  "$here/slurm-array.sh")
# A task that has made its first picture is taken away and has to start again.
for _ in $(seq 600); do
  [ -s manifest-2.json ] && break
  sleep 0.02
done
scontrol requeue "${job}_2" || echo "the task was done before it could be requeued"
for _ in $(seq 300); do
  [ -z "$(squeue -h -j "$job" -t pending,running,completing,configuring,requeued)" ] && break
  # Requeued tasks wait for two minutes, if nobody lets them go.
  scontrol update jobid="${job}_2" starttime=now 2>/dev/null || true
  sleep 0.5
done

cd "$work"
states=$(SLURM_CONF=$SLURM_CONF scontrol -o show job "$job" | grep -o 'JobState=[A-Z_]*' | sort | uniq -c)
[[ $states == *"6 JobState=COMPLETED" ]] || { cat array/slurm-*.out; fail "states: $states"; }
for node in node1 node2; do
  grep -q 'Launching batch job' "slurmd-$node.log" || fail "$node had nothing to do"
done
diff -r single/out array/out || fail "the array's pictures are not those of a single run"
cat array/manifest-{1..6}.json | cmp - single/all.json || fail "the manifests differ"
restarts=$(scontrol -o show job "${job}_2" | grep -o 'Restarts=[0-9]*')
echo "6 tasks on 2 nodes, $restarts: $(ls array/out | wc -l) pictures and the manifest as in one run"
