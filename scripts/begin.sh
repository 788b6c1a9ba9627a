# shellcheck shell=bash disable=SC2034 # most of it is for the script that sources this
# How a script that runs a local gateway begins. Sourced with the script's arguments, of which it takes
#
#   --no-build  take the programs as they are
#   --build     where the programs are; default build
#   --home      where the gateway's files go
#
# and leaves the others in `words`. Sets `self`, `repository`, `build`, and `home` if it was given.
self=$(readlink -f "$0")
repository=${self%/scripts/*}
no_build='' build=$repository/build home='' words=()
arguments=("$@")

# usage: the comment at the script's top.
usage() {
  sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$self" >&2
  exit 2
}

while [[ $# != 0 ]]; do
  case $1 in
    --no-build) no_build=yes ;;
    --build) build=$(readlink -f "${2:?}") && shift ;;
    --home) home=$(readlink -m "${2:?}") && shift ;;
    *) words+=("$1") ;;
  esac
  shift
done

# enter_sandbox: builds, and begins again inside a sandbox; returns there.
enter_sandbox() {
  [[ ! ${IN_SANDBOX:-} ]] || return 0
  if [[ ! $no_build ]]; then
    # shellcheck source=scripts/packages
    source "$repository/scripts/packages"
    make_programs "$build"
  fi
  exec "$repository/scripts/in-sandbox" "$self" --no-build "${arguments[@]}"
}
