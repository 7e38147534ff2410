#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a scratch root and runs the tool from there:
# help, then generate and check of the sample media with the installed language table.
set -u
build=$1 source=$2
for tool in cpack dpkg-deb; do
  command -v "$tool" >/dev/null || { echo "$tool is not installed"; exit 77; }
done
scratch=$(mktemp -d) || exit 1
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
fail() { echo "FAIL: $*"; exit 1; }

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/pkg" >cpack.log 2>&1 || { cat cpack.log; fail cpack; }
deb=$(echo "$scratch"/pkg/*.deb)
dpkg-deb -f "$deb" Depends | grep -q libc6 || fail "Depends lacks libc6"
dpkg-deb -f "$deb" Depends | grep -q libsodium23 || fail "Depends lacks libsodium23"
dpkg-deb -x "$deb" "$scratch/root" || fail "dpkg-deb -x"
usr=$scratch/root/usr exe=$usr/bin/ZYNInsMediaCheck
for file in share/man/man1/ZYNInsMediaCheck.1.gz share/doc/zyninsmediacheck/README.md \
  share/doc/zyninsmediacheck/copyright share/doc/zyninsmediacheck/changelog.gz; do
  [ -f "$usr/$file" ] || fail "$file not installed"
done
[ ! -e "$usr/share/doc/zyninsmediacheck/architecture.md" ] || fail "design notes installed"
help=$("$exe" -h) || fail "-h gave status $?"
[ "${help%%$'\n'*}" = "Zynthar Media checker tools." ] || fail "-h printed: $help"

# A UTF-8 name is recorded as the same text only when the installed table is found,
# which the tool does by itself, with no variable naming it.
cp -R "$source/sample/media" media
name=$(printf 'caf\303\251.txt')
echo text >"media/2/$name"
unset QRTReffilesPath QRTInstallPath
export LC_ALL=C.UTF-8 LANG=C.UTF-8
"$exe" -generate -CD1Path "$scratch/media/1" -relinfo "$source/sample/release-info.xml" -quiet ||
  fail "generate gave status $?"
grep -q "path=\"/$name\"" media/1/0data/MediaContent.xml || fail "$name not recorded as text"
"$exe" -CD1Path "$scratch/media/1" -quiet -xml report.xml || fail "check gave status $?"
echo changed >>media/2/notes.txt
"$exe" -CD1Path "$scratch/media/1" -quiet -xml report.xml
status=$?
[ "$status" = 1 ] && grep -q notes.txt report.xml || fail "check of a changed file gave status $status"
