# shellcheck shell=bash disable=SC2034 # most of it is for the script that sources this
# How a script that runs a local gateway begins. Sourced with the script's arguments, of which it takes
#
#   --help, --version, and --describe for scripts/manual
#   --no-build  take the programs as they are
#   --build     where the programs are; default build
#   --home      where the gateway's files go
#
# and leaves the others in `words`. Sets `self`, `repository`, `build`, and `home` if it was given. What a
# script takes is said by the comment at its top, in lines of "  --name VALUE  help" and "  command  help";
# nothing else is taken.
self=$(readlink -f "$0")
repository=${self%/scripts/*}
no_build='' build=$repository/build home='' words=()
arguments=("$@")
# What enter_sandbox builds.
targets=(local-gateway)

fail() {
  echo "${LOCAL_GATEWAY:-${self##*/}}: $*" >&2
  exit 1
}

# usage: the comment at the script's top.
usage() {
  help_text >&2
  exit 2
}

help_text() { sed -n '2,/^set /{/^set /!s/^# \{0,1\}//p}' "$self"; }

# describe: the same as the C++ programs' table, see gateway/common/options.h. The comment's first line is
# "NAME: SUMMARY".
describe() {
  help_text | awk -F '  +' '
    function end() { if (line != "") print line; line = "" }
    NR == 1 { split($0, head, ": "); print "name\t" head[1]; print "summary\t" substr($0, length(head[1]) + 3); next }
    /^      / { line = line " " $2; next }
    { end() }
    /^  --/ { n = split($2, words, " "); line = "option\t" substr(words[1], 3) "\t" substr($2, length(words[1]) + 2) "\t" $3; next }
    /^  [^ ]/ { line = "command\t" $2 "\t" $3; next }
    /^$/ { gap = about == "" ? "" : "\\n\\n"; next }
    { about = about gap $0; gap = " " }
    END { end(); print "about\t" about }'
  printf 'option\t%s\t\t%s\n' help 'print this text' version 'print the version'
}

# takes OPTION: whether the script's comment has it, and with a value.
takes() { help_text | grep -qE -- "^  $1( [^ ]+)?( |\$)"; }

while [[ $# != 0 ]]; do
  case $1 in
    --help) help_text && printf '  --%s\n' 'help  print this text' 'version  print the version' && exit ;;
    --version) sed -n "2s/^# \\([a-z-]*\\).*/\\1 $(<"$repository/VERSION")/p" "$self" && exit ;;
    --describe) describe && exit ;;
    --no-build) no_build=yes ;;
    --build | --home)
      [[ ${2:-} ]] || usage
      [[ $1 == --home ]] || build=$(readlink -f "$2")
      [[ $1 == --build ]] || home=$(readlink -m "$2")
      shift
      ;;
    # The command has options of its own.
    --enter) words+=("$@") && break ;;
    --*) takes "$1" || usage && words+=("$1") ;;
    *) words+=("$1") ;;
  esac
  shift
done

# choose_home: the home of a gateway that several commands know: the one given, else GATEWAY_HOME, else the default one
# of the repository. The packaged commands give GATEWAY_HOME, where they know one.
choose_home() {
  [[ $home || ${GATEWAY_HOME:-} || ! ${LOCAL_GATEWAY:-} ]] || fail "HOME is not set; name a folder by --home"
  home=${home:-$(readlink -m "${GATEWAY_HOME:-$build/local-gateway}")}
}

# enter_sandbox: builds, and begins again inside a sandbox; returns there.
enter_sandbox() {
  [[ ! ${IN_SANDBOX:-} ]] || return 0
  # Inside, what is new in /tmp would be the sandbox's own, and nobody outside could see it.
  mkdir -p "$home"
  if [[ ! $no_build ]]; then
    # shellcheck source=scripts/packages
    source "$repository/scripts/packages"
    make_programs "$build" "${targets[@]}"
  fi
  exec "$repository/scripts/in-sandbox" "$self" --no-build "${arguments[@]}"
}
