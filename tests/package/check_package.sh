#!/usr/bin/env bash
# Builds the Debian package, checks its contents and control fields, then
# runs its maintainer scripts against a scratch root (update-alternatives
# --root), so that the machine's own alternatives stay as they are, and
# runs Octave, scipy and every installed consumer of libblas.so.3 and
# liblapack.so.3 (hosts/closure.py) on the unpacked libraries as the
# alternatives select them.
set -euo pipefail
build=$1
arch=$2
loader=$3      # hosts/closure.py's loader
reference=$4   # the reference pair's directories
hosts=$(cd "$(dirname "$0")/../hosts" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$build" && cpack -G DEB -B "$work/out" >/dev/null)
deb=$(ls "$work"/out/vorn_*.deb)
fail() { echo "FAIL: $*"; exit 1; }

dpkg-deb -c "$deb" | awk '{print $6}' | sed 's|^\./|/|' > "$work/files"
for f in /usr/lib/vorn/libblas.so.3 /usr/lib/vorn/liblapack.so.3 /usr/lib/libvorn.so.1 /usr/include/vorn_instable.h \
         /usr/include/vorn/vorn_stable.hpp /usr/lib/pkgconfig/vorn.pc /usr/lib/cmake/vorn/vornConfig.cmake; do
  grep -qx "$f" "$work/files" || fail "$f missing from the package"
done
if grep -E 'tests?/|/bench|example|\.a$' "$work/files"; then fail "test or build files packaged"; fi
depends=$(dpkg-deb -f "$deb" Depends)
for d in libmkl-core libmkl-gnu-thread liblapack3; do
  [[ ", $depends," == *", $d,"* ]] || fail "Depends lacks $d: $depends"
done
dpkg-deb -e "$deb" "$work/control"
grep -q ldconfig "$work/control/triggers" || fail "no ldconfig trigger"

root=$work/root
dpkg-deb -x "$deb" "$root"
mkdir -p "$root/etc/alternatives" "$root/var/lib/dpkg/alternatives" "$root/usr/lib/$arch"
for f in "$root"/usr/lib/vorn/*.so.3 "$root"/usr/lib/libvorn.so.1; do
  if readelf -d "$f" | grep -qE 'RPATH|RUNPATH'; then fail "$f keeps a build path"; fi
done

# update-alternatives as the scripts call it, confined to the scratch root.
mkdir -p "$work/shim"
cat > "$work/shim/update-alternatives" <<SHIM
#!/bin/sh
exec /usr/bin/update-alternatives --root "$root" "\$@"
SHIM
chmod +x "$work/shim/update-alternatives"
alt() { PATH="$work/shim:$PATH" "$@"; }

alt "$work/control/postinst" configure
for lib in libblas.so.3 liblapack.so.3; do
  name=$lib-$arch
  alt update-alternatives --query "$name" > "$work/query"
  grep -qx "Alternative: /usr/lib/vorn/$lib" "$work/query" || fail "$lib not registered"
  grep -qx "Priority: 5" "$work/query" || fail "$lib registered at another priority"
  [[ $(readlink "$root/usr/lib/$arch/$lib") == /etc/alternatives/$name ]] || fail "$lib link"
  [[ $(readlink "$root/etc/alternatives/$name") == /usr/lib/vorn/$lib ]] || fail "$lib not selected in the scratch root"
done

# The unpacked libraries serve a real program, the layer from the package.
maps=$(LD_LIBRARY_PATH="$root/usr/lib/vorn:$root/usr/lib" MKL_NUM_THREADS=1 octave-cli --no-gui --eval \
  'a = magic(6) + eye(6); assert(norm(a * inv(a) - eye(6), 1) < 1e-12); printf("%s", fileread("/proc/self/maps"))')
for f in "$root/usr/lib/vorn/libblas.so.3" "$root/usr/lib/vorn/liblapack.so.3" "$root/usr/lib/libvorn.so.1.0.0"; do
  grep -q "$f" <<<"$maps" || fail "Octave did not map $f"
done

# The libraries the scratch root's alternatives select, its absolute links
# followed inside it.
mkdir -p "$work/selected"
for lib in libblas.so.3 liblapack.so.3; do
  target=$(readlink "$root$(readlink "$root/usr/lib/$arch/$lib")")
  ln -s "$root$target" "$work/selected/$lib"
done
selected="$work/selected:$root/usr/lib"
python3 "$hosts/host_run.py" scipy --path "$selected" --dropin "$root/usr/lib/vorn" \
  --layer "$root/usr/lib/libvorn.so.1" --reference "${reference##*:}/liblapack.so.3" >/dev/null || fail "scipy through the alternatives"
python3 "$hosts/closure.py" "$loader" "reference=$reference" "alternatives=$selected" ||
  fail "a consumer does not load through the alternatives"

alt "$work/control/prerm" upgrade
alt update-alternatives --query libblas.so.3-$arch >/dev/null || fail "upgrade withdrew the alternative"
alt "$work/control/prerm" remove
for lib in libblas.so.3 liblapack.so.3; do
  if alt update-alternatives --query "$lib-$arch" >/dev/null 2>&1; then fail "$lib still registered after remove"; fi
  [[ ! -e $root/usr/lib/$arch/$lib && ! -L $root/usr/lib/$arch/$lib ]] || fail "$lib link left after remove"
done
echo "package contents, control fields and maintainer scripts as expected"
