# shellcheck shell=bash disable=SC2154,SC2034 # the caller's variables, and those of scripts/local-gateway.sh
# A local gateway that stays up: others enter it, its parts come back, and faults are played to it. Sourced by
# scripts/run. Orders come from scripts/gateway-fault through home/control, as lines of a number, a part and a fault,
# and are answered through home/answer, by lines of that number and played, failed or unknown.

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
  [[ -O $home/environment ]] || fail "the gateway in $home is somebody else's"
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
  # What came to /tmp later than the gateway is not in there.
  exec "${enter[@]}" --target "$process" --wdns="$([[ -d /proc/$process/root$PWD ]] && echo "$PWD" || echo /)" \
    -- "${command[@]}"
}

# write_environment: what makes a shell one inside. Of scripts/, last in PATH, some are called like commands of the system.
write_environment() {
  printf 'export %s=%q\n' GATEWAY_HOME "$home" GATEWAY_BROKER "$GATEWAY_BROKER" GATEWAY_WEB_ROOT "$GATEWAY_WEB_ROOT" \
    GATEWAY_WEB_URL "$GATEWAY_WEB_URL" GATEWAY_CONFIG_DB "$GATEWAY_CONFIG_DB" RUNTIME_DIRECTORY "$RUNTIME_DIRECTORY" \
    PATH "$build:$PATH:$repository/scripts" GATEWAY_ENTERED yes >"$home/environment"
}

# own_command: what starts this script again with the same folders.
own_command() {
  if [[ ${LOCAL_GATEWAY:-} ]]; then
    printf '%s --home %q' "$LOCAL_GATEWAY" "$home"
    return
  fi
  printf '%q' "$self"
  [[ $build == "$repository/build" ]] || printf ' --build %q' "$build"
  [[ $home == "$build/local-gateway" ]] || printf ' --home %q' "$home"
}

print_invitation() {
  local enter first logs calls readme
  enter="$(own_command) --enter"
  printf -v first %q "$repository/gateway/samples/first"
  printf -v logs %q "$home/logs"
  readme=$repository/gateway/README.md
  # Where the package has it.
  [[ -e $readme ]] || readme=$(readlink -m "$repository/../../share/doc/${repository##*/}/gateway/README.md")
  printf -v calls %q "$home/calls"
  cat >>"$GATEWAY_TRACE" <<END_OF_TEXT

The gateway stays up until Ctrl-C. A shell in it, from another terminal, or a command:
  $enter
  $enter gateway-job add $first --encrypt
In there, to submit a folder of your own, delete it, or reset the gateway (manifest: $readme).
What you make in /tmp from now on is not seen in there:
  gateway-job add $first --encrypt
  gateway-job delete $first
  gateway-job reset
To trigger a rule, to watch the topics and the bus, to read the store, the service's log and what executors received:
  gateway-job trigger '{"pump": "off"}'
  gateway-job watch '/sys/#'
  gateway-trace
  gateway-status
  gateway-config list
  tail -f $logs/task-dispatcher.log
  ls $calls/*
To see what becomes of a job when something is wrong (all of them: gateway-fault --help):
  gateway-fault executor silent
  gateway-fault web 404
  gateway-fault all well
END_OF_TEXT
}

# start_page: what shows all this in a browser, on the port it had before or on a free one. Says where, when that is new.
start_page() {
  local log=$home/logs/gateway-page.log former=${page_address:-} port before
  port=${former##*:}
  : >>"$log"
  before=$(wc -l <"$log")
  start gateway-page env "PATH=$build:$PATH" "$build/gateway-page" --root "$repository" --home "$home" \
    --port "${port:-0}"
  await_line "$log" $((before + 1)) 30 . || true
  page_address=$(tail -n "+$((before + 1))" "$log" | sed -n 's|^\(http:.*\)/$|\1|p')
  if [[ $page_address ]]; then
    [[ $page_address == "$former" ]] || say "The gateway's page: $page_address/"
    return 0
  fi
  echo "local-gateway: the page does not start: $(tail -n 1 "$log")" >&2
  end gateway-page || true
  # Somebody else has the port, perhaps.
  [[ $port ]] && start_page
}

# start_part NAME
start_part() {
  case $1 in
    broker) start_broker ;;
    gateway-scheduler) start_scheduler ;;
    gateway-web) start_web ;;
    gateway-page) start_page ;;
    # What it needs may be away just now, so its registration is not waited for.
    task-dispatcher) launch_service ;;
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
    [[ $1 != task-dispatcher || $status == 0 ]] || wrong=$((wrong + 1))
    return 0
  fi
  bus_is_there || return 0
  # One that ends at once must not keep the machine busy.
  ((SECONDS - ${ended_at[$1]:--9} > 1)) || sleep 1
  ended_at[$1]=$SECONDS
  if start_part "$1"; then
    say "$1 is started again"
  else
    say "$1 can not be started"
  fi
}

# bus_is_there: starts the daemon again if it has ended, with which all parts end. Where that fails the gateway ends.
bus_is_there() {
  ask_bus GetId >/dev/null 2>&1 && return
  say "the bus daemon has ended"
  "$repository/scripts/in-sandbox" --stage=bus && return
  say "the bus daemon can not be started again"
  wrong=$((wrong + 1)) leaving=yes
  return 1
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
  start_part "$1" || return
  [[ $1 == gateway-web ]] || await_trace "$1 +-> bus +owns"
}

# bring_back NAME: a part that was stopped. Until the scheduler has the broker nobody takes an order.
bring_back() {
  [[ ! ${pid_of[$1]:-} ]] || return 0
  mark_trace
  start_part "$1" || return
  [[ $1 == task-dispatcher || ! ${pid_of[broker]:-} || ! ${pid_of[gateway-scheduler]:-} ]] ||
    await_trace 'gateway-scheduler +-> broker +connected'
}

# stop NAME: ends a part, if it is there.
stop() { [[ ! ${pid_of[$1]:-} ]] || end "$1" || true; }

# misbehave NAME METHOD KIND: of an executor; 2 for a kind that there is not.
misbehave() {
  local kind=$3
  case $3 in
    late) kind=late:3000 ;;
    code) kind=code:5 ;;
  esac
  [[ $kind =~ ^(silent|garbage|twice|die|well|late:[0-9]+|code:[0-9]+)$ ]] || return 2
  options_of[$1]="--fault $2=$kind"
  [[ $kind != well ]] || options_of[$1]=''
  replace "$1"
}

# all_well: every part, even if one of them fails.
all_well() {
  local name failed=0
  for name in executor parser web; do play "$name" well || failed=1; done
  for name in broker bridge scheduler service; do play "$name" start || failed=1; done
  return "$failed"
}

# play PART FAULT: does it; 2 for what there is not, 1 for what could not be done.
play() {
  local name=${part_name[$1]:-}
  case "$1 $2" in
    'bridge stop') stop_bridge ;;
    'bridge start') start_bridge ;;
    'broker stop' | 'scheduler stop' | 'service stop') stop "$name" ;;
    'broker start' | 'scheduler start' | 'service start') bring_back "$name" ;;
    # It is found to have ended, and started again.
    'service kill') [[ ${pid_of[$name]:-} ]] && kill -s KILL "${pid_of[$name]}" ;;
    'executor '*) misbehave Rillmark deployJob "$2" ;;
    'parser '*) misbehave driver_manager deployConfig "$2" ;;
    'web well') web_options=() && replace gateway-web ;;
    'web 404' | 'web slow' | 'web cut') web_options=(--fault "$2") && replace gateway-web ;;
    'all well') all_well ;;
    *) return 2 ;;
  esac
}

# await_order: one line of home/control into home/order, by a child, so that one wait is for orders and parts alike.
await_order() {
  # shellcheck disable=SC2016 # for the shell that is started
  setpriv --pdeathsig TERM "$BASH" -c 'read -r line && echo "$line"' <&"$control" >"$home/order" &
  pid_of[order]=$!
}

# take_order: the one that came, and its answer.
take_order() {
  local number part fault status=0 answers=(played failed unknown)
  unset "pid_of[order]"
  read -r number part fault <"$home/order" || true
  play "${part:-none}" "$fault" || status=$?
  [[ $status != 0 ]] || say "played: $part $fault"
  echo "$number ${answers[$status]:-failed}" >&"$answer"
  await_order
}

# look_after_parts: takes an order that has come, and has back what has ended, until nothing of this is left to do.
look_after_parts() {
  local name found=yes
  while [[ $found ]]; do
    found=''
    for name in "${!pid_of[@]}"; do
      [[ ! $leaving ]] || return 0
      # What an order has stopped meanwhile is none of them any more.
      ! kill -0 "${pid_of[$name]:-$$}" 2>/dev/null || continue
      found=yes
      if [[ $name == order ]]; then take_order; else part_ended "$name"; fi
    done
    [[ ! $once || ${pid_of[task-dispatcher]:-} ]] || leaving=yes
  done
}

# stay_up: until the script is ended; with --once until the service ends.
stay_up() {
  local leaving='' control answer
  declare -A ended_at=() part_name=([broker]=broker [scheduler]=gateway-scheduler [service]=task-dispatcher)
  mkfifo "$home/control" "$home/answer"
  write_environment
  print_invitation
  # Both ways: to open them waits for nobody, nor does an answer that nobody reads.
  exec {control}<>"$home/control" {answer}<>"$home/answer"
  start_part bridge-watch
  await_order
  while look_after_parts && [[ ! $leaving ]]; do
    wait -n "${pid_of[@]}" || true
  done
}
