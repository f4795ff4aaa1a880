# shellcheck shell=bash
# The emulated Windows-compatible systems: a Debian root for each architecture with Wine and the PC/SC stack, made once
# and kept in the cache. A run never changes it: lab/run-windows lays a throw-away layer over it.
# Sourced after common.sh and packages.sh.

SYSTEM_SUITE=trixie
SYSTEM_PACKAGES=wine,wine64,pcscd,vsmartcard-vpcd,libgnutls30t64

# debianArch ARCH: the Debian name of arm64 or x64.
debianArch() {
  case $1 in
    arm64) echo arm64 ;;
    x64) echo amd64 ;;
    *) die "unknown architecture '$1': arm64 or x64" ;;
  esac
}

# systemDir ARCH: the folder of the finished system. Its name carries a hash of everything that decides about its
# content: a changed recipe makes a new system and leaves the old one alone.
systemDir() {
  local hash
  hash=$({ echo "$SYSTEM_SUITE $SYSTEM_PACKAGES" && declare -f buildSystem; } | sha256sum | cut -c -12)
  echo "$CACHE/system-$(debianArch "$1")-$hash"
}

# ensureEmulation: lets the kernel start programs of the other architecture. Only a machine that has not done so at its
# start needs the mount and the registration; both stay, as they would after a start with the package installed.
ensureEmulation() {
  local misc=/proc/sys/fs/binfmt_misc
  [ "$(uname -m)" = x86_64 ] || die "the emulated systems are made for an x86-64 machine, this one is $(uname -m)"
  if [ ! -e "$misc/register" ]; then
    asRoot modprobe binfmt_misc 2>/dev/null || true
    asRoot mount -t binfmt_misc binfmt_misc "$misc" || die "cannot mount binfmt_misc: no emulation of Arm programs"
  fi
  if [ ! -e "$misc/qemu-aarch64" ]; then
    # The "F" flag of the registration opens the emulator at once, so that it also works inside another root folder.
    asRoot sh -c "cat /usr/lib/binfmt.d/qemu-aarch64.conf >$misc/register" 2>/dev/null || true
    [ -e "$misc/qemu-aarch64" ] || die "cannot register the Arm emulator with binfmt_misc"
  fi
}

# debianMirror: the archive that this machine's own apt uses.
debianMirror() {
  local mirror
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' 'Label: Debian' | head -n 1)
  if [ -z "$mirror" ]; then
    asRoot apt-get -q update >/dev/null
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' 'Label: Debian' |
      head -n 1)
  fi
  [ -n "$mirror" ] || die "apt on this machine names no Debian archive"
  echo "$mirror"
}

# ensureSystem ARCH: makes the system if it is not there yet; two to six minutes then, at once otherwise.
ensureSystem() {
  ensurePackages "${EMULATION_PACKAGES[@]}" || return 1
  ensureEmulation
  [ -d "$(systemDir "$1")" ] || onlyOne "system-$1" buildSystem "$1"
}

buildSystem() {
  local arch=$1 target work mirror proxy='' options=()
  target=$(systemDir "$arch")
  [ ! -d "$target" ] || return 0
  # A folder left by an attempt that was cut off has nobody who could still be using it: the lock is ours.
  asRoot rm -rf "$target".new.*
  work=$target.new.$$
  mkdir -p "$CACHE"
  mirror=$(debianMirror)
  eval "$(apt-config shell proxy Acquire::http::Proxy)"
  [ -z "$proxy" ] || options+=(--aptopt="Acquire::http::Proxy \"$proxy\";")
  whileSaying "making the emulated $arch system (once, some minutes)" "$CACHE/logs/system-$arch.log" \
    asRoot mmdebstrap --arch="$(debianArch "$arch")" --variant=minbase --include="$SYSTEM_PACKAGES" \
    --dpkgopt='path-exclude=/usr/share/man/*' --dpkgopt='path-exclude=/usr/share/doc/*' \
    --dpkgopt='path-exclude=/usr/share/locale/*' "${options[@]}" "$SYSTEM_SUITE" "$work" \
    "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $SYSTEM_SUITE main" || return 1
  # The sockets and locks of the services start empty in every run.
  asRoot mkdir -p "$work/wine" "$work/build" "$work/out" "$work/run/pcscd"
  whileSaying "preparing Wine in the $arch system" "$CACHE/logs/wine-$arch.log" \
    asRoot "$REPO/lab/in-system" --persistent "$work" /bin/sh -c \
    'wine wineboot -i && wineserver -w && test -f "$WINEPREFIX/system.reg"' || return 1
  asRoot mv "$work" "$target"
  say "the $arch system is ready: $target"
}
