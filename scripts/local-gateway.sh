# shellcheck shell=bash disable=SC2154,SC2034 # the caller's variables, and those that only it uses
# The local gateway's parts: starting, stopping, waiting for them. Sourced, inside the sandbox, by
# scripts/run and by the tests that break things.
#
# The caller sets `repository`, `build` (where the programs are) and `home` (a folder for everything that
# the parts write). Each part appends to home/logs/NAME.log and to the one trace of all, home/trace.

readonly product_key=pk-local device_name=dn-local device_secret=0f1e2d3c4b5a69788796a5b4c3d2e1f0
readonly working_tree=/tarnvale/run/downloaded-job

# name -> process id of what runs
declare -A pid_of=()
# name of an executor -> options of gateway-executor that it gets besides
declare -A options_of=()
service_starts=0 broker_starts=0
broker_port=
# Which build of the service is started.
service_program=${service_program:-task-dispatcher}
# true: the broker notes every change on disk, so that one that was killed still knows who has subscribed.
broker_remembers=
# Options that gateway-web gets besides, and what its URLs begin with.
web_options=() web_scheme=http
# Set: the scheduler writes every message from and to the service, and every event of a job, into
# home/messages.
record_messages=
# Set: the messages in the trace are not shown, only what the caller says.
brief_trace=
# Lines of the trace that await_trace passes over.
trace_mark=0

# refuse TEXT
refuse() {
  echo "local-gateway: $*" >&2
  exit 1
}

# empty_home: of what an earlier gateway has left there, and of nothing else. The folder itself may be a mount point.
empty_home() (
  mark=.local-gateway
  # A second gateway on this bus would end the first one's parts.
  [[ ! ${GATEWAY_ENTERED:-} ]] || refuse "this shell is inside the gateway of $GATEWAY_HOME; leave it first"
  mkdir -p "$home"
  cd "$home" || exit
  # The last two are from before there was a mark.
  [[ -e $mark || -z $(ls -A) || (-e mosquitto.conf && -e trace) ]] ||
    refuse "$home has files that are no local gateway's; choose another --home"
  : >"$mark"
  find . -mindepth 1 ! -path "./$mark" -delete
)

# prepare_home: an empty home, the environment of every part, the trace on standard output; everything is
# ended when the caller exits.
prepare_home() {
  export LC_ALL=C.UTF-8
  empty_home
  mkdir "$home"/{web,logs,calls,run}
  : >"$home/trace"
  export GATEWAY_TRACE=$home/trace GATEWAY_TRACE_START=${EPOCHREALTIME/,/.}
  export GATEWAY_CONFIG_DB=$home/store.db GATEWAY_WEB_ROOT=$home/web RUNTIME_DIRECTORY=$home/run
  # By which others know that somebody lives here, and enter.
  echo "${SANDBOX_PROCESS:-}" >"$home/process"
  # The broker is not on everyone's path.
  PATH=$PATH:/usr/sbin
  print_trace &
  printer=$!
  trap finish EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

# print_trace: the trace as it grows, until its last line.
print_trace() {
  local line
  follow "$GATEWAY_TRACE" 1
  while IFS= read -r -u "$followed" line; do
    [[ $line != '== end' ]] || break
    [[ ! $brief_trace || $line != *' -> '* ]] || continue
    printf '%s\n' "$line"
  done
  unfollow
}

finish() {
  local status=$?
  trap - EXIT INT TERM
  end_all
  # What says that a gateway is here.
  rm -f "$home"/{process,environment,control,answer}
  say '== end'
  wait "$printer" 2>/dev/null || true
  exit "$status"
}

# say TEXT: by way of the trace's file, so that everything stays in order.
say() { printf '%s\n' "$*" >>"$GATEWAY_TRACE"; }

title() { say $'\n'"== $1"; }

# start NAME COMMAND...: in the background, known as NAME from then on. A program ends with this script, even when
# that is killed.
start() {
  local name=$1 ends=(setpriv --pdeathsig TERM)
  shift
  [[ $(type -t "$1") != function ]] || ends=()
  "${ends[@]}" "$@" >>"$home/logs/$name.log" 2>&1 </dev/null &
  pid_of[$name]=$!
}

# end NAME [SIGNAL]: ends it and waits for it, by force after 10 s. Its exit status.
end() {
  local status=0 pid=${pid_of[$1]}
  kill -s "${2:-TERM}" "$pid" 2>/dev/null || true
  if ! timeout 10 tail -s 0.05 --pid="$pid" -f /dev/null; then
    echo "local-gateway: $1 does not end" >&2
    kill -s KILL "$pid" 2>/dev/null || true
  fi
  wait "$pid" 2>/dev/null || status=$?
  unset "pid_of[$1]"
  return "$status"
}

end_all() {
  local name
  # Or the bus daemon would start them again while the others end.
  rm -f /tmp/var/run/mbusd/services/*.service
  for name in "${!pid_of[@]}"; do
    end "$name" || true
  done
  end_owners
}

# end_owners: whoever is on the bus under the name of a part: what the daemon has started, and what an earlier
# script has left behind. They know a home that is gone by the next start.
end_owners() {
  local name pid
  for name in iot.bridge.mqtt iot.job.manager iot.runtime.js iot.edge.Rillmark iot.gateway.cvbase iot.driver.manager; do
    pid=$(bus_pid "$name") || continue
    kill "$pid" 2>/dev/null || continue
    timeout 10 tail -s 0.05 --pid="$pid" -f /dev/null || kill -s KILL "$pid" 2>/dev/null || true
  done
}

# follow FILE LINE: FILE from its LINE-th line on and as it grows, through the descriptor `followed`.
follow() {
  exec {followed}< <(exec tail -n "+$2" -f "$1" 2>/dev/null)
  follower=$!
}

unfollow() {
  kill "$follower" 2>/dev/null || true
  exec {followed}<&-
}

# await_line FILE LINE SECONDS PATTERN: waits until a line of FILE, its LINE-th or a later one, matches.
await_line() {
  local line deadline=$((SECONDS + $3)) status=1
  follow "$1" "$2"
  while ((SECONDS < deadline)) && IFS= read -r -t $((deadline - SECONDS)) -u "$followed" line; do
    if [[ $line =~ $4 ]]; then
      status=0
      break
    fi
  done
  unfollow
  return "$status"
}

# mark_trace: what is in the trace now counts no more for await_trace.
mark_trace() {
  trace_mark=$(wc -l <"$GATEWAY_TRACE")
}

# await_trace PATTERN [SECONDS]: waits until the trace has a matching line behind the mark.
await_trace() {
  await_line "$GATEWAY_TRACE" $((trace_mark + 1)) "${2:-30}" "$1" && return
  echo "local-gateway: in ${2:-30} s nobody said: $1" >&2
  return 1
}

# await_log NAME PATTERN [SECONDS]: the same for the whole log of a part.
await_log() {
  await_line "$home/logs/$1.log" 1 "${3:-30}" "$2" && return
  echo "local-gateway: in ${3:-30} s $1 did not log: $2" >&2
  return 1
}

# start_broker: on a free port of the loopback interface, or on the one it had before, which others know.
start_broker() {
  local tries known=$broker_port
  for ((tries = known ? 5 : 20; tries > 0; tries--)); do
    broker_port=${known:-$((20000 + RANDOM))}
    cat >"$home/mosquitto.conf" <<END
listener $broker_port 127.0.0.1
allow_anonymous true
persistence ${broker_remembers:-false}
persistence_location $home/
autosave_on_changes true
autosave_interval 1
max_queued_messages 0
max_inflight_messages 0
set_tcp_nodelay true
user $(id -un)
END
    # What an earlier one said stays, apart from what is looked at.
    [[ ! -s $home/logs/broker.log ]] || mv "$home/logs/broker.log" "$home/logs/broker.log.$((++broker_starts))"
    : >"$home/logs/broker.log"
    start broker mosquitto -v -c "$home/mosquitto.conf"
    await_log broker 'mosquitto version .* running|Error: ' 20 || return
    if ! grep -q '^[0-9: ]*Error: ' "$home/logs/broker.log"; then
      export GATEWAY_BROKER=127.0.0.1:$broker_port
      return 0
    fi
    end broker || true
    # Somebody has it for a moment, perhaps.
    [[ ! $known ]] || sleep 1
  done
  echo "local-gateway: the broker does not start: $(<"$home/logs/broker.log")" >&2
  return 1
}

# activate NAME LOG COMMAND...: from now on the bus daemon starts COMMAND whenever the bus name NAME is asked
# for and has no owner; what it writes is appended to LOG.
activate() {
  local name=$1 log=$2 word line=
  shift 2
  # shellcheck disable=SC2016 # for the shell that the daemon starts
  for word in /usr/bin/env "GATEWAY_TRACE=$GATEWAY_TRACE" "GATEWAY_TRACE_START=$GATEWAY_TRACE_START" \
    /bin/sh -c 'exec "$@" >>"$0" 2>&1' "$home/logs/$log.log" "$@"; do
    word=${word//\\/\\\\}
    line+="\"${word//\"/\\\"}\" "
  done
  # Once for the command line, and once for the file.
  line=${line//\\/\\\\}
  while IFS= read -r word; do
    printf '%s\n' "${word/@COMMAND@/"$line"}"
  done <"$repository/gateway/bus/$name.service.in" >"/tmp/var/run/mbusd/services/$name.service"
}

# start_bridge: by the bus daemon, which from then on starts it again whenever somebody calls it.
start_bridge() {
  activate iot.bridge.mqtt mqtt-bridge "$build/mqtt-bridge" --port "$broker_port" --state "$home/bridge.db"
  ask_bus StartServiceByName string:iot.bridge.mqtt uint32:0 >/dev/null
}

# stop_bridge: and keeps it away: the daemon does not know how to start it.
stop_bridge() {
  rm -f /tmp/var/run/mbusd/services/iot.bridge.mqtt.service
  ask_bus ReloadConfig >/dev/null || return
  end_owner iot.bridge.mqtt || true
}

# end_owner NAME [SIGNAL]: ends the owner of a bus name that the daemon has started.
end_owner() { kill -s "${2:-TERM}" "$(bus_pid "$1")"; }

start_scheduler() {
  start gateway-scheduler "$build/gateway-scheduler" --port "$broker_port" \
    --product-key "$product_key" --device-name "$device_name" \
    ${record_messages:+--record "$home/messages"}
}

# start_web: on a free port, or on the one it had before.
start_web() {
  local before
  before=$(wc -l <"$GATEWAY_TRACE")
  start gateway-web "$build/gateway-web" --root "$GATEWAY_WEB_ROOT" --port "${web_port:-0}" "${web_options[@]}"
  if ! await_line "$GATEWAY_TRACE" $((before + 1)) 30 'listens on port'; then
    echo "local-gateway: the web server does not start: $(tail -n 1 "$home/logs/gateway-web.log")" >&2
    return 1
  fi
  web_port=$(sed -n 's/.*listens on port //p' "$GATEWAY_TRACE" | tail -n 1)
  GATEWAY_WEB_URL=$web_scheme://127.0.0.1:$web_port
  export GATEWAY_WEB_URL
}

# executor_command NAME: sets `command` to the command line of one of the four executors.
executor_command() {
  local name=$1 option
  command=("$build/gateway-executor" --name "$name" --folder "$home/calls/$name")
  case $name in
    Rillmark) command+=(--bus-name iot.edge.Rillmark --path /iot/edge/Rillmark) ;;
    IFTTTEngine) command+=(--bus-name iot.runtime.js --path /iot/runtime/js) ;;
    CorvexConfig)
      command+=(--bus-name iot.gateway.cvbase --path /iot/gateway/cvbase --per-resource)
      ;;
    driver_manager)
      command+=(--bus-name iot.driver.manager --path /iot/driver/manager --watch-types driver
        --executor --parser --report-status)
      ;;
  esac
  for option in ${options_of[$name]:-}; do
    command+=("$option")
  done
}

# start_executor NAME
start_executor() {
  local command
  executor_command "$1"
  start "$1" "${command[@]}"
}

# activate_engine: from now on the bus daemon starts the script engine whenever its name is asked for.
activate_engine() {
  local command
  executor_command IFTTTEngine
  activate iot.runtime.js IFTTTEngine "${command[@]}"
}

# launch_service: task-dispatcher, which reads the VERSION of the folder above its own.
launch_service() { start task-dispatcher env --chdir="$repository/scripts" "$build/$service_program"; }

# start_service: returns when it has been granted its runner id and the executors that register have done so.
start_service() {
  local log=$home/logs/task-dispatcher.log
  [[ ! -e $log ]] || mv "$log" "$log.$((++service_starts))"
  mark_trace
  launch_service
  await_trace 'registerExecutor succeeded'
  await_trace 'registerParser succeeded'
  await_log task-dispatcher 'runnerId ='
}

set_identity() {
  "$build/gateway-config" set gw_system_productkey "$product_key"
  "$build/gateway-config" set gw_system_devicename "$device_name"
  "$build/gateway-config" set gw_system_devicesecret "$device_secret"
}

# start_gateway: all of it, in a prepared home. Returns when the service has been granted its runner id.
start_gateway() {
  start_neighbours
  start_service
}

# start_neighbours: all but the service. Returns when they are connected.
start_neighbours() {
  local name
  end_owners
  set_identity
  start_broker
  start_bridge
  start_scheduler
  start_web
  activate_engine
  for name in Rillmark IFTTTEngine CorvexConfig driver_manager; do
    start_executor "$name"
  done
  await_trace 'mqtt-bridge +-> broker +connected'
  await_trace 'gateway-scheduler +-> broker +connected'
  for name in Rillmark IFTTTEngine CorvexConfig driver_manager; do
    await_trace "$name +-> bus +owns"
  done
}

# ask_bus METHOD [ARGUMENT...]: what the bus daemon itself answers.
ask_bus() {
  local method=$1
  shift
  DBUS_SESSION_BUS_ADDRESS=unix:path=/tmp/var/run/mbusd/mbusd_socket dbus-send --session \
    --print-reply=literal --dest=org.freedesktop.DBus / "org.freedesktop.DBus.$method" "$@"
}

# bus_pid NAME: the process id of the owner of a bus name. Fails when it has none.
bus_pid() {
  local reply
  reply=$(ask_bus GetConnectionUnixProcessID "string:$1" 2>/dev/null) && echo "${reply##* }"
}

# resources_of FILE: the resource ids of a recorded payload, in order, in one line.
resources_of() {
  sed -nE 's/.*"(resourceId|snapshotId)" : "([^"@]*)(@[^"]*)?".*/\2/p' "$1" | uniq | paste -sd ' '
}

# --- checks -------------------------------------------------------------------------------------

# How much was not as expected.
wrong=0

# check WHAT COMMAND...: one line; counts what is not as expected.
check() {
  local what=$1
  shift
  if "$@"; then
    say "  as expected  $what"
  else
    say "  WRONG        $what"
    wrong=$((wrong + 1))
  fi
}

same() {
  [[ $1 == "$2" ]] && return
  say "    is '$1', expected '$2'"
  return 1
}

judge_the_trace() {
  title "the trace"
  check "nobody complained" same "$(grep -F FAULT "$GATEWAY_TRACE")" ''
  check "no errors in the parts' logs" same "$(sanitizer_findings)" ''
}

sanitizer_findings() {
  grep -lE '(ERROR|WARNING): (Address|Leak|Thread)Sanitizer|runtime error:' "$home"/logs/* || true
}
