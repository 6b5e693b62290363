#!/usr/bin/env bash
# netlan.sh - private test LANs made of network namespaces (run as root).
#
# A LAN named LAN consists of the namespace "LAN-sw", which holds the bridge
# "br0", and one namespace "LAN-NAME" per host. Each host interface is one end
# of a veth pair whose other end ("pN") is a port of br0 in LAN-sw. The veth
# pairs are created directly inside their namespaces, so nothing at all appears
# in the caller's own network namespace. Traffic never leaves the LAN.
#
#   netlan.sh up LAN --subnet A.B.C.0/24 [options]
#       --gateway NAME=IP/PREFIX[:IFNAME]  a host marked as the gateway (IFNAME default eth0)
#       --host NAME=IP/PREFIX[:IFNAME]     a host (IFNAME default eth0); IP/PREFIX may be "-"
#                                          for an interface without an address
#       --iface NAME=IP/PREFIX:IFNAME      a further interface of an existing host, on the bridge
#       --addr NAME[:IFNAME]=IP/PREFIX     an extra address (default: the host's first interface)
#       --down NAME[:IFNAME]               leave that interface administratively down
#       --nocarrier NAME[:IFNAME]          interface up, but its bridge port down (not running)
#     --subnet is informational (kept in the state) and the default prefix source:
#     an IP given without /PREFIX takes the subnet's prefix. Options may repeat.
#     Builds everything or nothing: on any failure the partial LAN is removed.
#     Refuses to build a LAN whose namespaces already exist.
#   netlan.sh exec LAN NAME -- CMD ARGS...   runs CMD inside host NAME (exit status passed on;
#                                            NAME "sw" is the switch namespace)
#   netlan.sh spawn LAN NAME -- CMD ARGS...  starts CMD in the background inside host NAME,
#                                            records it, prints its pid; its output goes to
#                                            /run/netlan/LAN/NAME.PID.log
#   netlan.sh down LAN                       kills spawned and any other process left in the
#                                            LAN's namespaces, deletes them and the state;
#                                            idempotent, succeeds when nothing is left
#   netlan.sh list                           lists live LANs, one name a line
#   netlan.sh gc PREFIX                      takes down every LAN whose name starts with PREFIX
#   netlan.sh ns LAN NAME                    prints the namespace name of host NAME
#
# LAN names: letters, digits, "_" and "." (no "-", so "LAN-" prefixes never overlap);
# host names: letters, digits, "_" and "-"; interface names: at most 15 characters.
# State: /run/netlan/LAN/ (namespaces, pids, logs).
set -uo pipefail

STATE_ROOT=${NETLAN_STATE_ROOT:-/run/netlan}

die() { echo "netlan: $*" >&2; exit 1; }

check_lan_name() {
  [[ $1 =~ ^[A-Za-z0-9_.]+$ ]] || die "bad LAN name '$1' (letters, digits, _ and . only)"
}

check_host_name() {
  [[ $1 =~ ^[A-Za-z0-9_][A-Za-z0-9_-]*$ ]] || die "bad host name '$1'"
  [[ $1 != sw ]] || die "host name 'sw' is reserved for the switch"
}

lan_namespaces() {
  # Every namespace named LAN-*; safe because LAN names contain no "-".
  ip netns list 2>/dev/null | awk '{print $1}' | grep -E "^$(printf '%s' "$1" | sed 's/\./\\./g')-" || true
}

alive() {
  # A zombie counts as gone: its reaper may be slow, but it holds nothing.
  local st
  st=$(awk '{print $3}' "/proc/$1/stat" 2>/dev/null) || return 1
  [ -n "$st" ] && [ "$st" != Z ]
}

kill_pid_list() {
  local sig=$1; shift
  local p
  for p in "$@"; do
    [ -n "$p" ] && kill "-$sig" "$p" 2>/dev/null
  done
  return 0
}

do_down() {
  local lan=$1
  local state="$STATE_ROOT/$lan"
  local pids=() ns p
  if [ -f "$state/pids" ]; then
    while read -r p _; do pids+=("$p"); done <"$state/pids"
  fi
  local namespaces
  namespaces=$(lan_namespaces "$lan")
  for ns in $namespaces; do
    for p in $(ip netns pids "$ns" 2>/dev/null); do pids+=("$p"); done
  done
  if [ ${#pids[@]} -gt 0 ]; then
    kill_pid_list TERM "${pids[@]}"
    local i alive
    for i in $(seq 1 20); do
      alive=0
      for p in "${pids[@]}"; do alive "$p" && alive=1; done
      [ $alive = 0 ] && break
      sleep 0.05
    done
    kill_pid_list KILL "${pids[@]}"
  fi
  for ns in $namespaces; do
    # Processes started by hand inside the namespace after the first sweep.
    for p in $(ip netns pids "$ns" 2>/dev/null); do kill -KILL "$p" 2>/dev/null; done
    ip netns del "$ns" 2>/dev/null || true
  done
  rm -rf "$state"
  return 0
}

# --- up -------------------------------------------------------------------------------------

declare -a HOSTS=()          # host names in order of declaration
declare -A HOST_ROLE=()      # host -> gateway|host
declare -a LINKS=()          # "host:ifname" in order
declare -A LINK_ADDRS=()     # "host:ifname" -> space-separated IP/PREFIX list
declare -A LINK_DOWN=()      # "host:ifname" -> 1
declare -A LINK_NOCARRIER=() # "host:ifname" -> 1
declare -A FIRST_LINK=()     # host -> "host:ifname"
SUBNET=""

with_prefix() {
  local a=$1
  if [[ $a == */* ]]; then echo "$a"; return; fi
  [ -n "$SUBNET" ] || die "address '$a' has no /PREFIX and there is no --subnet"
  echo "$a/${SUBNET#*/}"
}

add_link() {
  local host=$1 ifname=$2 addr=$3
  [ ${#ifname} -le 15 ] || die "interface name '$ifname' is longer than 15 characters"
  local key="$host:$ifname"
  [ -z "${LINK_ADDRS[$key]+x}" ] || die "interface $ifname of $host declared twice"
  LINKS+=("$key")
  LINK_ADDRS[$key]=""
  [ -n "${FIRST_LINK[$host]+x}" ] || FIRST_LINK[$host]=$key
  if [ "$addr" != "-" ] && [ -n "$addr" ]; then
    local full
    full=$(with_prefix "$addr") || exit 1
    LINK_ADDRS[$key]=$full
  fi
}

parse_host_arg() { # ROLE ARG
  local role=$1 arg=$2
  [[ $arg == *=* ]] || die "expected NAME=IP/PREFIX[:IFNAME], got '$arg'"
  local name=${arg%%=*} rest=${arg#*=} addr ifname=eth0
  check_host_name "$name"
  [ -z "${HOST_ROLE[$name]+x}" ] || die "host '$name' declared twice"
  if [[ $rest == *:* ]]; then addr=${rest%%:*}; ifname=${rest#*:}; else addr=$rest; fi
  HOSTS+=("$name")
  HOST_ROLE[$name]=$role
  add_link "$name" "$ifname" "$addr"
}

link_of() { # NAME[:IFNAME] -> key
  local ref=$1 host ifname
  if [[ $ref == *:* ]]; then host=${ref%%:*}; ifname=${ref#*:}; else host=$ref; ifname=""; fi
  [ -n "${HOST_ROLE[$host]+x}" ] || die "unknown host '$host' (declare it with --host first)"
  if [ -z "$ifname" ]; then echo "${FIRST_LINK[$host]}"; return; fi
  [ -n "${LINK_ADDRS[$host:$ifname]+x}" ] || die "host '$host' has no interface '$ifname'"
  echo "$host:$ifname"
}

do_up() {
  local lan=$1; shift
  check_lan_name "$lan"
  local -a extra_addrs=() downs=() nocarriers=() ifaces=()
  while [ $# -gt 0 ]; do
    case $1 in
      --subnet) [ $# -ge 2 ] || die "--subnet needs a value"; SUBNET=$2; shift 2 ;;
      --gateway) [ $# -ge 2 ] || die "--gateway needs a value"; parse_host_arg gateway "$2"; shift 2 ;;
      --host) [ $# -ge 2 ] || die "--host needs a value"; parse_host_arg host "$2"; shift 2 ;;
      --iface) [ $# -ge 2 ] || die "--iface needs a value"; ifaces+=("$2"); shift 2 ;;
      --addr) [ $# -ge 2 ] || die "--addr needs a value"; extra_addrs+=("$2"); shift 2 ;;
      --down) [ $# -ge 2 ] || die "--down needs a value"; downs+=("$2"); shift 2 ;;
      --nocarrier) [ $# -ge 2 ] || die "--nocarrier needs a value"; nocarriers+=("$2"); shift 2 ;;
      *) die "unknown option '$1'" ;;
    esac
  done
  [ ${#HOSTS[@]} -gt 0 ] || die "a LAN needs at least one --host or --gateway"
  local arg ref key
  for arg in "${ifaces[@]}"; do
    [[ $arg == *=*:* ]] || die "--iface expects NAME=IP/PREFIX:IFNAME, got '$arg'"
    local h=${arg%%=*} r=${arg#*=}
    [ -n "${HOST_ROLE[$h]+x}" ] || die "unknown host '$h' in --iface"
    add_link "$h" "${r#*:}" "${r%%:*}"
  done
  for arg in "${extra_addrs[@]}"; do
    [[ $arg == *=* ]] || die "--addr expects NAME[:IFNAME]=IP/PREFIX, got '$arg'"
    key=$(link_of "${arg%%=*}") || exit 1
    local full
    full=$(with_prefix "${arg#*=}") || exit 1
    LINK_ADDRS[$key]="${LINK_ADDRS[$key]} $full"
  done
  for ref in "${downs[@]}"; do key=$(link_of "$ref") || exit 1; LINK_DOWN[$key]=1; done
  for ref in "${nocarriers[@]}"; do key=$(link_of "$ref") || exit 1; LINK_NOCARRIER[$key]=1; done

  local existing
  existing=$(lan_namespaces "$lan")
  if [ -n "$existing" ] || [ -d "$STATE_ROOT/$lan" ]; then
    die "LAN '$lan' already exists (namespaces: $(echo $existing)); remove it with: $0 down $lan"
  fi

  local state="$STATE_ROOT/$lan"
  UP_DONE=0
  UP_LAN=$lan
  trap 'if [ "$UP_DONE" = 0 ]; then echo "netlan: building LAN $UP_LAN failed, removing it" >&2; do_down "$UP_LAN"; fi' EXIT
  set -e
  mkdir -p "$state"
  : >"$state/pids"
  {
    echo "subnet $SUBNET"
    local h
    for h in "${HOSTS[@]}"; do echo "${HOST_ROLE[$h]} $h"; done
  } >"$state/hosts"

  local sw="$lan-sw"
  ip netns add "$sw"
  ip -n "$sw" link set lo up
  ip -n "$sw" link add br0 type bridge forward_delay 0 stp_state 0
  ip -n "$sw" link set br0 up
  local h
  for h in "${HOSTS[@]}"; do
    ip netns add "$lan-$h"
    ip -n "$lan-$h" link set lo up
  done
  local n=0 host ifname a
  for key in "${LINKS[@]}"; do
    host=${key%%:*}; ifname=${key#*:}
    n=$((n + 1))
    ip link add "p$n" netns "$sw" type veth peer name "$ifname" netns "$lan-$host"
    ip -n "$sw" link set "p$n" master br0
    if [ -z "${LINK_NOCARRIER[$key]+x}" ]; then ip -n "$sw" link set "p$n" up; fi
    for a in ${LINK_ADDRS[$key]}; do
      ip -n "$lan-$host" addr add "$a" dev "$ifname"
    done
    if [ -z "${LINK_DOWN[$key]+x}" ]; then ip -n "$lan-$host" link set "$ifname" up; fi
  done
  set +e
  UP_DONE=1
  trap - EXIT
  return 0
}

# --- exec / spawn ----------------------------------------------------------------------------

host_ns() { # LAN NAME
  check_lan_name "$1"
  local ns="$1-$2"
  ip netns list 2>/dev/null | awk '{print $1}' | grep -qxF "$ns" || die "no namespace $ns (is LAN '$1' up?)"
  echo "$ns"
}

do_exec() {
  [ $# -ge 4 ] && [ "$3" = "--" ] || die "usage: netlan.sh exec LAN NAME -- CMD ARGS..."
  local ns
  ns=$(host_ns "$1" "$2") || exit 1
  shift 3
  exec ip netns exec "$ns" "$@"
}

do_spawn() {
  [ $# -ge 4 ] && [ "$3" = "--" ] || die "usage: netlan.sh spawn LAN NAME -- CMD ARGS..."
  local lan=$1 host=$2 ns
  ns=$(host_ns "$lan" "$host") || exit 1
  shift 3
  local state="$STATE_ROOT/$lan"
  mkdir -p "$state"
  local tmplog="$state/$host.starting.$$.log"
  # Opened here, before the job starts, so the rename below never races the job's own redirection.
  exec 9>"$tmplog"
  ip netns exec "$ns" "$@" </dev/null >&9 2>&1 9>&- &
  local pid=$!
  exec 9>&-
  mv "$tmplog" "$state/$host.$pid.log"
  echo "$pid $host $*" >>"$state/pids"
  echo "$pid"
}

# --- list / gc -------------------------------------------------------------------------------

live_lans() {
  {
    ip netns list 2>/dev/null | awk '{print $1}' | grep -E -- '-sw$' | sed 's/-sw$//'
    [ -d "$STATE_ROOT" ] && ls -1 "$STATE_ROOT" 2>/dev/null
  } | grep -E '^[A-Za-z0-9_.]+$' | sort -u
}

do_gc() {
  [ $# -eq 1 ] && [ -n "$1" ] || die "usage: netlan.sh gc PREFIX"
  local lan
  for lan in $(live_lans); do
    case $lan in "$1"*) do_down "$lan" ;; esac
  done
  return 0
}

[ $# -ge 1 ] || die "usage: netlan.sh up|exec|spawn|down|list|gc|ns ..."
cmd=$1; shift
case $cmd in
  up) [ $# -ge 1 ] || die "usage: netlan.sh up LAN --subnet ... --host ..."; do_up "$@" ;;
  exec) do_exec "$@" ;;
  spawn) do_spawn "$@" ;;
  down) [ $# -eq 1 ] || die "usage: netlan.sh down LAN"; check_lan_name "$1"; do_down "$1" ;;
  list) live_lans ;;
  gc) do_gc "$@" ;;
  ns) [ $# -eq 2 ] || die "usage: netlan.sh ns LAN NAME"; host_ns "$1" "$2" ;;
  -h|--help|help) sed -n '2,/^set -uo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//' ;;
  *) die "unknown command '$cmd'" ;;
esac
