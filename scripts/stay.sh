# shellcheck shell=bash disable=SC2154,SC2034 # the caller's variables, and those of scripts/local-gateway.sh
# A local gateway that stays up: others enter it, its parts come back, and faults are played to it. Sourced by
# scripts/run. Orders come from scripts/gateway-fault as lines through home/control, one at a time, and are
# answered through home/answer.

fail() {
  echo "${self##*/}: $*" >&2
  exit 1
}

# is_running: whether a gateway lives in home. One of a machine without namespaces is not known.
is_running() {
  local process
  [[ -s $home/process ]] || return
  process=$(<"$home/process")
  [[ -r /proc/$process/cmdline ]] && grep -qzF in-sandbox "/proc/$process/cmdline"
}

first_child() {
  local all
  all=$(<"/proc/$1/task/$1/children")
  echo "${all%% *}"
}

# enter_gateway [COMMAND...]: becomes COMMAND, or a shell, inside the gateway of home.
enter_gateway() {
  local process='' enter=(nsenter --mount --pid --root) command=("$@")
  [[ ${#command[@]} != 0 ]] || command=("${SHELL:-/bin/bash}")
  [[ -e $home/environment ]] || fail "no gateway stays up in $home"
  # shellcheck source=/dev/null
  source "$home/environment"
  [[ ! ${IN_SANDBOX:-} ]] || exec "${command[@]}"
  export IN_SANDBOX=1
  process=$(<"$home/process")
  # Without namespaces it is here.
  [[ $process ]] || exec "${command[@]}"
  is_running || fail "no gateway stays up in $home"
  process=$(first_child "$(first_child "$process")")
  if [[ $(readlink "/proc/$process/ns/user") != "$(readlink /proc/self/ns/user)" ]]; then
    enter+=(--user --preserve-credentials)
  elif [[ $EUID != 0 ]]; then
    enter=(sudo -n -E env "PATH=$PATH" "${enter[@]}")
    command=(setpriv --reuid="$EUID" --regid="$(id -g)" --init-groups "${command[@]}")
  fi
  exec "${enter[@]}" --target "$process" --wdns="$PWD" "${command[@]}"
}

write_environment() {
  printf 'export %s=%q\n' GATEWAY_HOME "$home" GATEWAY_BROKER "$GATEWAY_BROKER" GATEWAY_WEB_ROOT "$GATEWAY_WEB_ROOT" \
    GATEWAY_WEB_URL "$GATEWAY_WEB_URL" GATEWAY_CONFIG_DB "$GATEWAY_CONFIG_DB" RUNTIME_DIRECTORY "$RUNTIME_DIRECTORY" \
    PATH "$build:$repository/scripts:$PATH" >"$home/environment"
}

# own_command: what starts this script again with the same folders.
own_command() {
  if [[ ${LOCAL_GATEWAY:-} ]]; then
    echo "$LOCAL_GATEWAY"
    return
  fi
  printf '%q' "$self"
  [[ $build == "$repository/build" ]] || printf ' --build %q' "$build"
  [[ $home == "$build/local-gateway" ]] || printf ' --home %q' "$home"
}

print_invitation() {
  local enter samples=$repository/gateway/samples
  enter="$(own_command) --enter"
  cat >>"$GATEWAY_TRACE" <<END_OF_TEXT

The gateway stays up until Ctrl-C. A shell in it, from another terminal, or a command:
  $enter
  $enter gateway-job add $samples/first --encrypt
In there, to submit a folder of your own, delete it, or reset the gateway (manifest: gateway/README.md):
  gateway-job add $samples/first --encrypt
  gateway-job delete $samples/first
  gateway-job reset
To trigger a rule, to watch the topics and the bus, to read the store, the service's log and what executors received:
  gateway-job trigger '{"pump": "off"}'
  gateway-job watch '/sys/#'
  gateway-trace
  gateway-status
  gateway-config list
  tail -f $home/logs/task-dispatcher.log
  ls $home/calls/*
To see what becomes of a job when something is wrong (all of them: gateway-fault --help):
  gateway-fault executor silent
  gateway-fault web 404
  gateway-fault all well
END_OF_TEXT
}

# start_part NAME
start_part() {
  case $1 in
    broker) start_broker ;;
    gateway-scheduler) start_scheduler ;;
    gateway-web) start_web ;;
    # What it needs may be away just now, so its registration is not waited for.
    task-dispatcher) start task-dispatcher env --chdir="$repository/scripts" "$build/$service_program" ;;
    bridge-watch) start bridge-watch watch_bridge ;;
    # When the service misses it, the bus daemon starts it.
    IFTTTEngine) ;;
    *) start_executor "$1" ;;
  esac
}

# part_ended NAME: says so, and has it back.
part_ended() {
  local status=0
  wait "${pid_of[$1]}" || status=$?
  unset "pid_of[$1]"
  say "$1 has ended with status $status, see $home/logs/$1.log"
  if [[ $once ]]; then
    [[ $1 != task-dispatcher ]] || leaving=yes
    return 0
  fi
  # All of them end with the bus daemon.
  ask_bus GetId >/dev/null 2>&1 || { say "the bus daemon has ended" && "$repository/scripts/in-sandbox" --stage=bus; }
  # One that ends at once must not keep the machine busy.
  ((SECONDS - ${ended_at[$1]:--9} > 1)) || sleep 1
  ended_at[$1]=$SECONDS
  if start_part "$1"; then
    say "$1 is started again"
  else
    say "$1 can not be started"
  fi
}

# watch_bridge: says when the bridge has left the bus; the daemon starts it when it is called.
watch_bridge() {
  local line field=0
  exec {followed}< <(exec dbus-monitor --address unix:path=/tmp/var/run/mbusd/mbusd_socket \
    "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='iot.bridge.mqtt'")
  # shellcheck disable=SC2064 # the process of now
  trap "kill $!" TERM
  while IFS= read -r -u "$followed" line; do
    case $line in
      *member=NameOwnerChanged*) field=0 ;;
      *' string "'*) ((++field < 3)) || [[ $line != *'""' ]] || say "mqtt-bridge has left the bus" ;;
    esac
  done
}

# --- faults -------------------------------------------------------------------------------------

# replace NAME: ends a part and starts it with the options it has now.
replace() {
  stop "$1"
  mark_trace
  start_part "$1"
  [[ $1 == gateway-web ]] || await_trace "$1 +-> bus +owns"
}

# stop NAME: ends a part, if it is there.
stop() { [[ ! ${pid_of[$1]:-} ]] || end "$1" || true; }

# stop_bridge: and keeps it away: the daemon does not know how to start it.
stop_bridge() {
  rm -f /tmp/var/run/mbusd/services/iot.bridge.mqtt.service
  ask_bus ReloadConfig >/dev/null
  end_owner iot.bridge.mqtt || true
}

# misbehave NAME METHOD KIND: of an executor; not 0 for a kind that there is not.
misbehave() {
  local kind=$3
  case $3 in
    late) kind=late:3000 ;;
    code) kind=code:5 ;;
  esac
  [[ $kind =~ ^(silent|garbage|twice|die|well|late:[0-9]+|code:[0-9]+)$ ]] || return
  options_of[$1]="--fault $2=$kind"
  [[ $kind != well ]] || options_of[$1]=''
  replace "$1"
}

# play PART FAULT: does it; not 0 for what there is not.
play() {
  local name=${part_name[$1]:-}
  case "$1 $2" in
    'bridge stop') stop_bridge ;;
    'bridge start') start_bridge ;;
    'broker stop' | 'scheduler stop' | 'service stop') stop "$name" ;;
    'broker start' | 'scheduler start' | 'service start') [[ ${pid_of[$name]:-} ]] || start_part "$name" ;;
    # It is found to have ended, and started again.
    'service kill') [[ ${pid_of[$name]:-} ]] && kill -s KILL "${pid_of[$name]}" ;;
    'executor '*) misbehave Rillmark deployJob "$2" ;;
    'parser '*) misbehave driver_manager deployConfig "$2" ;;
    'web well') web_options=() && replace gateway-web ;;
    'web 404' | 'web slow' | 'web cut') web_options=(--fault "$2") && replace gateway-web ;;
    'all well')
      for name in executor parser web; do play "$name" well; done
      for name in broker bridge scheduler service; do play "$name" start; done
      ;;
    *) return 1 ;;
  esac
}

# take_order: the one that came, and its answer.
take_order() {
  local part fault
  read -r part fault <"$home/order" || true
  if play "$part" "$fault"; then
    say "played: $part $fault"
    echo done >"$home/answer"
  else
    echo "there is no fault '$part $fault'" >"$home/answer"
  fi
}

# stay_up: until the script is ended; with --once until the service ends.
stay_up() {
  local name reader leaving=''
  declare -A ended_at=() part_name=([broker]=broker [scheduler]=gateway-scheduler [service]=task-dispatcher)
  mkfifo "$home/control" "$home/answer"
  write_environment
  print_invitation
  start_part bridge-watch
  while [[ ! $leaving ]]; do
    # A child, so that one wait is for orders and parts alike.
    head -n 1 <"$home/control" >"$home/order" &
    reader=$!
    while [[ ! $leaving ]] && kill -0 "$reader" 2>/dev/null; do
      wait -n "$reader" "${pid_of[@]}" || true
      for name in "${!pid_of[@]}"; do
        kill -0 "${pid_of[$name]}" 2>/dev/null || part_ended "$name"
      done
    done
    [[ $leaving ]] || take_order
  done
}
