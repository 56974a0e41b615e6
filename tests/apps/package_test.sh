#!/usr/bin/env bash
# Makes the Debian package, and installs, upgrades, removes and purges it in a folder that stands for a machine.
# Usage: package_test.sh CPACK BUILD_FOLDER
set -euo pipefail

cpack=$1
build=$(realpath "$2")
folder=$(mktemp -d)
readonly folder
trap 'rm -rf "$folder"' EXIT
cd "$folder"

fail() {
  echo "error: $*" >&2
  exit 1
}
root=$folder/machine
enabled=$root/etc/systemd/user/default.target.wants/NorvellSonivoService.service
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
as_root=()
[[ $(id -u) -eq 0 ]] || as_root=(fakeroot)
package() { # DPKG_OPTION... : what it depends on is not there
  "${as_root[@]}" dpkg --root="$root" --log=/dev/null --force-script-chrootless --force-depends "$@" >>dpkg.log 2>&1 ||
    { cat dpkg.log; fail "dpkg $*"; }
}
on_machine() { DPKG_MAINTSCRIPT_PACKAGE=sonivo DPKG_ROOT=$root "${as_root[@]}" deb-systemd-helper --user "$@" >/dev/null; }
of_us() { (cd "$root" && find . -iname '*sonivo*' -not -path './var/lib/dpkg/*' | sort); }

"$cpack" --config "$build/CPackConfig.cmake" -B "$folder/made" >cpack.log 2>&1 || { cat cpack.log; fail "cpack"; }
deb=$(echo made/sonivo_*.deb)
field() { dpkg-deb -f "$deb" "$1"; }
[[ $(field Package) == sonivo ]] || fail "the package is $(field Package)"
[[ $(field Depends) == *pipewire,\ wireplumber* && $(field Depends) == *libc6* ]] || fail "it depends on $(field Depends)"
dpkg-deb -c "$deb" | awk '$2 != "root/root" || $1 ~ /s|w..w|w$/ { bad = 1; print } END { exit bad }' ||
  fail "the rights of what is installed"
# The next one, with a file less and a file more.
version=$(field Version)
dpkg-deb -R "$deb" next
sed -i "s/^Version: .*/Version: $version.1/" next/DEBIAN/control
mv next/usr/share/sonivo/microphones next/usr/share/sonivo/microphones-next
sed -i 's#sonivo/microphones$#sonivo/microphones-next#' next/DEBIAN/md5sums
dpkg-deb --root-owner-group -Znone -b next next.deb >/dev/null

package -i "$deb"
for file in bin/sonivo bin/NorvellSonivoDriver bin/NorvellSonivoService lib/systemd/user/NorvellSonivoService.service \
  share/sonivo/par/keycancel.bin share/sonivo/microphones share/man/man1/sonivo.1.gz share/doc/sonivo/copyright; do
  [[ -f $root/usr/$file ]] || fail "$file is missing"
done
grep -qx ExecStart=/usr/bin/NorvellSonivoService "$root/usr/lib/systemd/user/NorvellSonivoService.service" || fail "the unit names another program"
[[ -L $enabled && -L $root/etc/systemd/user/sockets.target.wants/NorvellSonivoDriver.socket ]] || fail "the units don't start with a session"

grep -q '^Copyright: ' "$root/usr/share/doc/sonivo/copyright" || fail "the copyright is nobody's"
# What the programs are compiled from beside their own sources; those of the system have no code in their headers.
compiled_in=$(ninja -C "$build" -t deps | awk '/^[^ ]/ { installed = $1 !~ /^(tests|bench|fuzz)\// } /^ / && installed' |
  grep -oE '/usr/(include|share)/[^/]+/' | grep -vE '/(c\+\+|x86_64-linux-gnu|linux|asm-generic|systemd)/' | sort -u)
for library in $compiled_in; do
  grep -qE "^Files:.* ${library#/}\*" "$root/usr/share/doc/sonivo/copyright" || fail "the copyright of $library is left out"
done
[[ $(zcat "$root/usr/share/doc/sonivo/changelog.gz" | head -n 1) == "sonivo ($version) "* ]] || fail "the changelog is of another version"
if command -v lintian >/dev/null; then
  lintian --allow-root --fail-on error,warning "$deb" || fail "the package is found fault with"
fi

# An administrator who has disabled the service finds it disabled after an upgrade.
on_machine disable NorvellSonivoService.service
[[ ! -L $enabled ]] || fail "it can't be disabled"
package -i next.deb
[[ ! -L $enabled ]] || fail "an upgrade enables it again"
[[ -f $root/usr/share/sonivo/microphones-next && ! -e $root/usr/share/sonivo/microphones ]] || fail "the upgrade left the former files"

package -r sonivo
[[ ! -e $root/usr/bin && ! -e $root/usr/share ]] || fail "removed, it leaves $(cd "$root" && find usr)"
package -i "$deb"
[[ ! -L $enabled ]] || fail "installed again, it forgets what was disabled"
on_machine enable NorvellSonivoService.service
[[ -L $enabled ]] || fail "it can't be enabled"
package -P sonivo
[[ -z $(of_us) ]] || fail "purged, it leaves $(of_us)"
echo "passed"
