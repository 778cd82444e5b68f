#!/usr/bin/env bash
# Both ways of encoding on several machines, with one machine that plays two: a node is killed in the middle, and in
# the end nothing is lost, doubled or half-written. Everything listens on the loopback only.
# Usage: demo.sh VELAENC_FOLDER [FILES [SECONDS]] [ssh] [slurm] [local] - `local` is ssh's way without ssh
set -euo pipefail

here=$(dirname -- "$(readlink -f -- "$0")")
PATH=$(readlink -f -- "$1"):$here:$PATH:/usr/sbin
files=${2:-60} seconds=${3:-60}
ways=("${@:4}")
[ ${#ways[@]} -gt 0 ] || ways=(ssh slurm)

work=$(mktemp -d)
# On node 2 an encode stands still in the middle, so that the kill meets one however fast the machine is.
mkdir "$work/bin"
cat >"$work/bin/velaenc" <<WRAPPER
#!/usr/bin/env bash
case "\${VELA_NODE:-}\${SLURMD_NODENAME:-}" in */2 | n2) ;; *) exec "${PATH%%:*}/velaenc" "\$@" ;; esac
nice -n 19 "${PATH%%:*}/velaenc" "\$@" &
while read -r name <"/proc/\$!/comm" && [ "\$name" != velaenc ]; do :; done
kill -STOP \$!
wait
WRAPPER
chmod +x "$work/bin/velaenc"
PATH=$work/bin:$PATH
say() { printf 'cluster-demo: %s\n' "$*" >&2; }
die() {
    say "$@"
    tail -n 5 "$work"/log/* >&2 2>/dev/null
    exit 1
}

# Processes below the given ones, and those that carry a mark in their environment, which a node's tasks do.
descendants() {
    local pid child
    for pid in "$@"; do
        for child in $(pgrep -P "$pid"); do descendants "$child"; done
        printf '%s\n' "$pid"
    done
}
marked() {
    grep -lzxF -- "$1" /proc/[0-9]*/environ 2>/dev/null | cut -d / -f 3
}
# kill_busy_node MARK DAEMON OUT: waits until the node encodes, and takes its power away.
is_busy() {
    local pid
    for pid in $(pgrep -x velaenc); do
        ! grep -qzxF -- "$1" "/proc/$pid/environ" 2>/dev/null || return 0
    done
    return 1
}
watchers() {
    local pid
    for pid in "$@"; do ps -o ppid= -p "$pid"; done | while read -r pid; do
        [ "$(ps -o comm= -p "$pid")" != slurmstepd ] || printf '%s\n' "$pid"
    done
}
take_power() {
    # The one that watches a task goes first: it must not live to tell that the task has failed.
    # shellcheck disable=SC2046 # numbers
    kill -9 $(watchers $(marked "$1")) $(marked "$1") $(descendants "$2") 2>/dev/null || true
}
# What was being started meanwhile goes as well: an encode that stands still would be waited for.
is_dead() {
    [ -z "$(marked "$1")" ] || {
        take_power "$@"
        false
    }
}
has_streams() { [ -n "$(find "$1" -name '*.mp2')" ]; }
kill_busy_node() {
    local finished
    until_true 60 is_busy "$1" || die "node 2 encodes nothing"
    until_true 60 has_streams "$3" || die "node 1 encodes nothing"
    take_power "$1" "$2"
    finished=$(find "$3" -name '*.mp2' 2>/dev/null | wc -l)
    until_true 20 is_dead "$1" "$2" || die "node 2 lives on"
    [ "$finished" -lt "$files" ] || die "all was over before the node could be killed"
    say "killed node 2 after $finished of $files files"
}
daemons=()
finish() {
    # shellcheck disable=SC2046 # numbers
    [ ${#daemons[@]} -eq 0 ] || kill $(descendants "${daemons[@]}") 2>/dev/null || true
    wait
    rm -rf "$work"
}
trap finish EXIT

# until_true SECONDS COMMAND ...
until_true() {
    local end=$((SECONDS + $1))
    shift
    until "$@" 2>/dev/null; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.02
    done
}
free_port() { python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }

make_input() {
    local i
    mkdir -p "$work"/{in/deep,log,whole}
    for ((i = 1; i <= files; i++)); do
        # Sound of noise, different in every file.
        local folder=$work/in
        [ $((i % 3)) -ne 0 ] || folder=$work/in/deep
        head -c $((seconds * 192000)) < <(openssl enc -aes-128-ctr -K "$(printf %032x "$i")" -iv 0 -in /dev/zero 2>/dev/null) |
            ffmpeg -v error -f s16le -ar 48000 -ac 2 -i - -y "$folder/$i.wav"
    done
    head -c 1000 "$work/in/1.wav" >"$work/in/cut.wav"
    # On a shared folder the clocks of machines differ a little.
    find "$work/in" -type f -exec touch -d '1 hour ago' {} +
    say "$files files of $seconds s and a damaged one; encoding them on one machine, for comparison"
    velaenc --quiet -r "$work/in" --output-dir "$work/whole" 2>/dev/null || [ $? -eq 6 ]
}

# What must hold afterwards: the streams of one machine, no other file, and one line a file in the merged reports.
check() {
    local way=$1 table=$work/$1.tsv
    diff -r "$work/whole" "$work/$way" >&2 || die "$way: the streams differ from those of one machine"
    merge_reports.sh "$work/$way-reports"/*.jsonl >"$table"
    [ "$(wc -l <"$table")" -eq $((files + 2)) ] || die "$way: $(wc -l <"$table") lines in the table"
    [ "$(cut -f 3 "$table" | grep -c failed)" -eq 1 ] || die "$way: not just the damaged file failed"
    awk -F '\t' '$6 != "" && NR > 1 { print $6 "  " $2 }' "$table" | sha256sum --quiet -c - >&2 || die "$way: digests"
    say "$way: all $files streams are those of one machine, the table has every file once:"
    sed "s|$work/||g" "$table" | sort | sed -n '1,4s/^/    /p' | cut -c 1-110
}
has_idle_nodes() { [ "$(sinfo -h -t idle -o %D)" = "$1" ]; }
has_no_jobs() { [ -z "$(squeue -h)" ]; }

# in_parallel WAY NODE_2: the batch on the nodes of run/hosts, the second of which is that process.
in_parallel() {
    over_ssh.sh "$work/run/hosts" 6 "$work/in" "$work/$1" "$work/$1-reports" --jobs 1 &>"$work/log/over_ssh" &
    local batch=$!
    daemons+=($!)
    kill_busy_node "VELA_NODE=$work/2" "$2" "$work/$1"
    wait "$batch" || die "$1: parallel failed"
    check "$1"
}

# Two ssh servers stand for two machines.
run_ssh() {
    local i ports=() servers=()
    ssh-keygen -q -t ed25519 -N '' -f "$work/run/key"
    mkdir -p /run/sshd 2>/dev/null || true
    for i in 1 2; do
        ports[i]=$(free_port)
        printf '%s\n' "Port ${ports[i]}" 'ListenAddress 127.0.0.1' "HostKey $work/run/key" 'StrictModes no' \
            "AuthorizedKeysFile $work/run/key.pub" 'UsePAM no' 'PermitRootLogin yes' "PidFile none" \
            "SetEnv PATH=$PATH VELA_NODE=$work/$i" >"$work/run/sshd$i"
        printf 'Host node%d\n HostName 127.0.0.1\n Port %d\n IdentityFile %s\n StrictHostKeyChecking no\n %s\n' "$i" \
            "${ports[i]}" "$work/run/key" "UserKnownHostsFile /dev/null" >>"$work/run/ssh_config"
        /usr/sbin/sshd -D -f "$work/run/sshd$i" -E "$work/log/sshd$i" &
        servers[i]=$!
        daemons+=($!)
        printf '1/ssh -q -F %s node%d\n' "$work/run/ssh_config" "$i" >>"$work/run/hosts"
        until_true 10 ssh -q -F "$work/run/ssh_config" "node$i" true || die "no ssh server on port ${ports[i]}"
    done
    in_parallel ssh "${servers[2]}"
}

# A process that sleeps stands for a machine; what logs in to it is a script that asks whether it lives.
run_local() {
    local i nodes=()
    cat >"$work/run/login" <<LOGIN
#!/usr/bin/env bash
node=\$1 && shift && [ "\$1" != -- ] || shift
kill -0 "\$(cat "$work/run/\$node")" 2>/dev/null || exit 255
exec env SHELL="\$BASH" VELA_NODE="$work/\$node" bash -c "\$*"
LOGIN
    chmod +x "$work/run/login"
    for i in 1 2; do
        sleep 600 &
        nodes[i]=$!
        daemons+=($!)
        printf '%d\n' "$!" >"$work/run/$i"
        printf '1/%s %d\n' "$work/run/login" "$i" >>"$work/run/hosts"
    done
    in_parallel local "${nodes[2]}"
}

# A controller and two node daemons.
run_slurm() {
    local i pids=() host
    host=$(hostname)
    mkdir -p "$work"/slurmd/{state,n1,n2}
    head -c 128 /dev/urandom >"$work/slurmd/key"
    chmod 600 "$work/slurmd/key"
    munged --foreground --force --key-file="$work/slurmd/key" --socket="$work/slurmd/munge" --pid-file="$work/slurmd/munge.pid" \
        --log-file="$work/slurmd/munge.log" --seed-file="$work/slurmd/seed" &>"$work/log/munged" &
    daemons+=($!)
    {
        printf '%s\n' ClusterName=demo "SlurmctldHost=$host(127.0.0.1)" "SlurmctldPort=$(free_port)" \
            CommunicationParameters=NoInAddrAny,NoCtldInAddrAny AuthType=auth/munge CredType=cred/munge \
            "AuthInfo=socket=$work/slurmd/munge,cred_expire=5" "SlurmUser=$(id -un)" "SlurmdUser=$(id -un)" \
            "StateSaveLocation=$work/slurmd/state" "SlurmdSpoolDir=$work/slurmd/%n" \
            "SlurmctldPidFile=$work/slurmd/ctld.pid" "SlurmdPidFile=$work/slurmd/%n.pid" \
            ProctrackType=proctrack/linuxproc TaskPlugin=task/none SwitchType=switch/none MpiDefault=none \
            JobAcctGatherType=jobacct_gather/none AccountingStorageType=accounting_storage/none \
            SelectType=select/cons_tres SelectTypeParameters=CR_Core SlurmdTimeout=5 KillWait=1 MinJobAge=2 \
            SchedulerParameters=bf_interval=1,sched_interval=1 ReturnToService=0
        for i in 1 2; do printf 'NodeName=n%d NodeHostname=%s NodeAddr=127.0.0.1 Port=%d CPUs=1\n' "$i" "$host" "$(free_port)"; done
        printf 'PartitionName=all Nodes=n1,n2 Default=YES\n'
    } >"$work/slurmd/slurm.conf"
    export SLURM_CONF="$work/slurmd/slurm.conf"
    until_true 10 test -S "$work/slurmd/munge" || die "munged does not start"
    slurmctld -D -i &>"$work/log/slurmctld" &
    daemons+=($!)
    for i in 1 2; do
        slurmd -D -N "n$i" &>"$work/log/slurmd$i" &
        pids[i]=$!
        daemons+=($!)
    done
    until_true 30 has_idle_nodes 2 || die "slurm: the nodes do not come up"
    sbatch --quiet --array=1-6 --chdir="$work/log" "$here/slurm_array.sh" "$work/in" "$work/slurm" \
        "$work/slurm-reports"
    kill_busy_node SLURMD_NODENAME=n2 "${pids[2]}" "$work/slurm"
    until_true 240 has_no_jobs || die "slurm: the jobs do not end: $(squeue)"
    check slurm
}

make_input
for way in "${ways[@]}"; do
    rm -rf "$work/run" && mkdir "$work/run"
    "run_$way"
done
