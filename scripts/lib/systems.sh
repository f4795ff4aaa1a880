# shellcheck shell=bash
# The emulated Windows-compatible systems: a Debian root for each architecture with Wine and the PC/SC stack, made once
# and kept in the cache. A run never changes it: lab/run-windows lays a throw-away layer over it.
# Sourced after common.sh and packages.sh.

SYSTEM_SUITE=trixie
SYSTEM_PACKAGES=wine,wine64,pcscd,vsmartcard-vpcd,libgnutls30t64

# What is done inside a system whose packages are unpacked but not configured, as that would take minutes of emulation: what
# Wine and pcscd need of it, and nothing else.
# - the administrator's name and group; localhost by /etc/hosts and by name service
# - the programs by their usual names, which are links that the packages' scripts make
# - for Intel the zlib that Wine's own libraries load: the package brings it as built for MinGW, and its script marks the copy
#   as one of Wine's own, in the unused bytes behind the header
# - the places for Wine's files, for programs, for results, and for the service's socket
# - no maker of desktop menus at every start of the system: there is no desktop, and it brings the shell with it
# - of the services only those that somebody asks for, beside the mount manager, which knows the drives. No bus for plugged-in
#   devices either: a smart-card reader comes by pcscd. Each is one more process to emulate, at every start. The values go into
#   the file while nothing runs, as the service manager writes back what it read; of a key that is there twice the later hold.
# - no debugger that is started for a program that crashes: it never comes to its work if that holds the loader's lock, and both
#   would stay
SYSTEM_SETUP=$(cat <<'END'
set -e
echo root:x:0:0:root:/root:/bin/sh >/etc/passwd
echo root:x:0: >/etc/group
echo "hosts: files dns" >/etc/nsswitch.conf
echo "127.0.0.1 localhost" >/etc/hosts
for program in /usr/bin/*-stable; do
  ln -s "${program##*/}" "${program%-stable}"
done
for folder in /usr/lib/*/wine/x86_64-windows; do
  [ -e "$folder/ntdll.dll" ] || continue
  zlib=/usr/x86_64-w64-mingw32/lib/zlib1.dll
  { head -c 64 "$zlib" && printf "Wine builtin DLL" && head -c 16 /dev/zero && tail -c +97 "$zlib"; } >"$folder/zlib1.dll"
done
mkdir -p /wine /build /out /run/pcscd
ldconfig
wine64 wineboot -i
wine64 reg delete 'HKLM\Software\Microsoft\Windows\CurrentVersion\RunServices' /f /v winemenubuilder
wine64 reg delete 'HKLM\System\CurrentControlSet\Enum\ROOT\WINE' /f
wineserver -w
test -f "$WINEPREFIX/system.reg"
for service in Eventlog NDIS nsiproxy PlugPlay; do
  printf '\n[System\\\\ControlSet001\\\\Services\\\\%s]\n"Start"=dword:00000003\n' "$service"
done >>"$WINEPREFIX/system.reg"
printf '\n[Software\\\\Microsoft\\\\Windows NT\\\\CurrentVersion\\\\AeDebug]\n"Debugger"="none"\n' >>"$WINEPREFIX/system.reg"
END
)

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
  hash=$({ echo "$SYSTEM_SUITE $SYSTEM_PACKAGES $SYSTEM_SETUP" && declare -f buildSystem ownLibrary &&
    cat "$REPO"/lab/{no_fonts,eager_reader,shared_first}.c; } | sha256sum | cut -c -12)
  echo "$CACHE/system-$(debianArch "$1")-$hash"
}

# ensureEmulation: lets the kernel start Arm programs. Only a machine that has not done so at its start needs the mount and the
# registration; both stay until it is started again.
ensureEmulation() {
  local misc=/proc/sys/fs/binfmt_misc emulator
  if [ ! -e "$misc/register" ]; then
    asRoot modprobe binfmt_misc 2>/dev/null || true
    asRoot mount -t binfmt_misc binfmt_misc "$misc" || die "cannot mount binfmt_misc: no emulation of Arm programs"
  fi
  [ ! -e "$misc/qemu-aarch64" ] || return 0
  emulator=$(emulatorDir)
  [ -d "$emulator" ] || fetchEmulator "$emulator" || die "cannot fetch the Arm emulator"
  asRoot sh -c "$REGISTER_EMULATOR" sh "$emulator" "$misc/register" || true
  [ -e "$misc/qemu-aarch64" ] || die "cannot register the Arm emulator with binfmt_misc"
}

# The kernel takes no long path, and none with a colon, and opens the emulator at once (the "F" among the flags), so that it also
# works inside another root folder: so a short name that is gone afterwards does. By the end of the name the emulator knows that
# it is told the program's own name as well (the "P").
# https://docs.kernel.org/admin-guide/binfmt-misc.html
REGISTER_EMULATOR=$(cat <<'END'
set -e
short=$(mktemp -d /tmp/orvane.XXXXXX)
trap 'rm -r "$short"' EXIT
ln -s "$1" "$short/in"
line=$(sed "s|:/usr/|:$short/in/usr/|" "$1/usr/lib/binfmt.d/qemu-aarch64.conf")
printf '%s\n' "$line" >"$2"
END
)

# emulatorDir: the folder of the Arm emulator; its name changes with how it is fetched.
emulatorDir() {
  echo "$CACHE/emulator-$({ declare -f fetchEmulator && echo "$UNPACK_EMULATOR"; } | sha256sum | cut -c -12)"
}

# fetchEmulator FOLDER: Debian's package has the emulators of all processors and takes 380 MB when it is installed; of these 13 are
# needed. They stay the administrator's, as the kernel starts them for everybody.
fetchEmulator() {
  asRoot rm -rf "$1".new.*
  asRoot mkdir -p "$1.new.$$"
  whileSaying "fetching the Arm emulator (once, 60 MB)" "$CACHE/logs/emulator.log" unpackEmulator "$1.new.$$" || return 1
  asRoot mv "$1.new.$$" "$1"
}

# The machine's lists of packages may never have been fetched, or be too old.
unpackEmulator() {
  asRoot sh -c "$UNPACK_EMULATOR" sh "$1" || { asRoot apt-get -q update && asRoot sh -c "$UNPACK_EMULATOR" sh "$1"; }
}

UNPACK_EMULATOR=$(cat <<'END'
set -e
cd "$1"
apt-get -q download qemu-user-static
dpkg-deb --fsys-tarfile qemu-user-static_*.deb | tar --extract ./usr/bin/qemu-aarch64-static \
  ./usr/libexec/qemu-binfmt/aarch64-binfmt-P ./usr/lib/binfmt.d/qemu-aarch64.conf
rm qemu-user-static_*.deb
END
)

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

# ensureSystem ARCH: makes the system if it is not there yet; one or two minutes then, at once otherwise.
ensureSystem() {
  ensurePackages "${EMULATION_PACKAGES[@]}" || return 1
  [ "$(uname -m)" = x86_64 ] || die "the emulated systems are made for an x86-64 machine, this one is $(uname -m)"
  [ "$1" != arm64 ] || [ -e /proc/sys/fs/binfmt_misc/qemu-aarch64 ] || onlyOne emulator ensureEmulation
  [ -d "$(systemDir "$1")" ] || onlyOne "system-$1" buildSystem "$1"
}

# gnuTriple ARCH: the name of its folder of libraries, and of the compiler's target.
gnuTriple() {
  case $1 in
    arm64) echo aarch64-linux-gnu ;;
    x64) echo x86_64-linux-gnu ;;
  esac
}

# ownLibrary ARCH SOURCE LIBRARY: compiles a source of lab/ as a library of the system.
ownLibrary() {
  local made=$CACHE/$2-$1.so
  clang --target="$(gnuTriple "$1")" -std=c11 -O1 -fPIC -fno-builtin -shared -nostdlib -fuse-ld=lld -Wall -Wextra -Werror \
    -Wl,-soname,"$(basename "$3")" "$REPO/lab/$2" -o "$made" && asRoot cp "$made" "$3" && rm "$made"
}

buildSystem() {
  local arch=$1 target work libraries mirror proxy='' options=()
  target=$(systemDir "$arch")
  [ ! -d "$target" ] || return 0
  # A folder left by an attempt that was cut off has nobody who could still be using it: the lock is ours.
  asRoot rm -rf "$target".new.*
  work=$target.new.$$
  mkdir -p "$CACHE"
  mirror=$(debianMirror)
  eval "$(apt-config shell proxy Acquire::http::Proxy)"
  [ -z "$proxy" ] || options+=(--aptopt="Acquire::http::Proxy \"$proxy\";")
  # Texts for people are removed afterwards: leaving them out by dpkg's options makes a filter read everything, which takes
  # longer than all the rest.
  whileSaying "fetching and unpacking the emulated $arch system (once, about a minute)" "$CACHE/logs/system-$arch.log" \
    asRoot mmdebstrap --arch="$(debianArch "$arch")" --variant=extract --include='?essential' --include="$SYSTEM_PACKAGES" \
    "${options[@]}" "$SYSTEM_SUITE" "$work" \
    "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $SYSTEM_SUITE main" || return 1
  # Not before, so that they can be installed meanwhile.
  ensurePackages "${EMULATION_TOOL_PACKAGES[@]}" || return 1
  libraries=$work/usr/lib/$(gnuTriple "$arch")
  asRoot rm -rf "$work"/usr/share/{doc,fonts,locale,man}
  # What plays and draws, with what only that needs: a quarter of the system, and nobody asks for it here.
  asRoot rm -rf "$libraries"/{gconv,gstreamer*,libgphoto2,systemd} "$libraries"/wine/*-unix/wine{dmo,gstreamer}.so \
    "$libraries"/lib{SvtAv1,aom,av,codec2,gav1,gphoto2,gst,heif,hwy,jxl,openmpt,opus,rav1e,rsvg,vpx,x264,x265}*.so*
  # Wine's own debug records are more than half of it.
  find "$work/usr/lib" -path '*-windows/*' -type f -print0 | asRoot xargs -0 -n 100 llvm-strip --strip-debug || return 1
  asRoot rm "$libraries"/libfreetype.so.6* || return 1
  ownLibrary "$arch" no_fonts.c "$libraries/libfreetype.so.6" || return 1
  ownLibrary "$arch" eager_reader.c "$work/usr/lib/eager_reader.so" || return 1
  if [ "$arch" = arm64 ]; then
    # Both names are of the same length. Nothing but Wine's own program names it.
    ownLibrary "$arch" shared_first.c "$work/usr/lib/ld-first-aarch64.so.1" || return 1
    asRoot env LC_ALL=C sed -i 's|/lib/ld-linux-aarch64\.so\.1|/lib/ld-first-aarch64.so.1|' "$work/usr/lib/wine/wine64" || return 1
    grep -q /lib/ld-first-aarch64.so.1 "$work/usr/lib/wine/wine64" || return 1
  fi
  whileSaying "preparing Wine in the $arch system (once, about half a minute)" "$CACHE/logs/wine-$arch.log" \
    asRoot "$REPO/lab/in-system" --persistent "$work" /bin/sh -c "$SYSTEM_SETUP" || return 1
  # Wine's folder begins as a copy of most of its packages; a run that writes to one gets its own copy of that.
  asRoot hardlink --quiet --content --respect-name "$work/wine" "$work/usr/lib" || return 1
  asRoot mv "$work" "$target"
  say "the $arch system is ready: $target"
}
