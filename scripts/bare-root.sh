# shellcheck shell=bash
# A bare Debian 12 in a folder: making it, and running commands in it. Sourced, by root; its own commands source it
# for quiet_apt.

# bare_sources: where this machine itself gets Debian 12 from, as lines of a sources.list.
bare_sources() {
  local uri release
  # shellcheck disable=SC2016 # apt-get fills these in
  apt-get indextargets --format '$(REPO_URI) $(RELEASE)' 'Created-By: Packages' | sort -u |
    while read -r uri release; do
      [[ ! $release =~ ^bookworm(-updates|-security)?$ ]] || echo "deb $uri $release main"
    done
}

# make_bare_root FOLDER: the essential packages and apt, nothing else.
make_bare_root() {
  local mirror
  mirror=$(bare_sources | awk '$3 == "bookworm" { print $2; exit }')
  debootstrap --variant=minbase bookworm "$1" "$mirror"
  chmod 755 "$1"
  bare_sources >"$1/etc/apt/sources.list"
  apt-config dump | grep -E '^Acquire::https?::Proxy' >"$1/etc/apt/apt.conf.d/90-as-outside" || true
  cp /etc/resolv.conf "$1/etc/resolv.conf"
  # It lives for minutes: nothing is gained by waiting for the disk.
  echo force-unsafe-io >"$1/etc/dpkg/dpkg.cfg.d/90-hurry"
  in_bare_root "$1" apt-get -qq update
}

# in_bare_root FOLDER COMMAND...: with that folder as the root of its file system, in mount and process
# namespaces that take along whatever is left when COMMAND ends.
in_bare_root() {
  # shellcheck disable=SC2016 # for the inner shell
  unshare --mount --pid --fork --kill-child bash -ec '
    root=$1
    shift
    mount --bind "$root" "$root"
    mount --rbind /dev "$root/dev"
    mount -t proc proc "$root/proc"
    mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
    mount -t tmpfs -o mode=755 tmpfs "$root/run"
    exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb LC_ALL=C.UTF-8 \
      DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"' bash "$@"
}

# new_bare_root: sets root to the folder of a new one, which is removed when the caller's shell ends.
new_bare_root() {
  root=$(mktemp -d)
  # shellcheck disable=SC2064 # the name is meant to be filled in now
  trap "rm -rf --one-file-system '$root' '$root.log'" EXIT
  make_bare_root "$root" >"$root.log" 2>&1 || { tail "$root.log" >&2 && return 1; }
  mkdir "$root/trial"
}

# quiet_apt WORD...: apt-get, whose output is only shown when it fails.
quiet_apt() {
  apt-get -qq -y --no-install-recommends "$@" >/trial/apt.log 2>&1 && return
  tail -n 30 /trial/apt.log >&2
  return 1
}
