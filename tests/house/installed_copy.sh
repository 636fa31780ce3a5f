#!/usr/bin/env bash
# Installs into an empty prefix, then builds and runs consumers from there: with CMake (the small
# one and the example that touches pixels), and with pkg-config.
# usage: installed_copy.sh CMAKE BUILD_DIR SOURCE_DIR WORK_DIR COMPILER CONFIG
set -euo pipefail
cmake=$1 build=$2 source=$3 work=$4/installed_copy compiler=$5 config=$6

rm -rf "$work"
mkdir -p "$work/consumer"
"$cmake" --install "$build" --prefix "$work/prefix" --config "$config" >"$work/install.log"
# Moved after installing: a prefix must work wherever it lands.
mv "$work/prefix" "$work/moved"
prefix=$work/moved

cp "$source"/tests/house/consumer/* "$work/consumer/"
cp "$source/examples/minimal_host.cpp" "$work/consumer/"

"$cmake" -S "$work/consumer" -B "$work/with_cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log"
"$cmake" --build "$work/with_cmake"
"$work/with_cmake/consumer"

# The square that the example draws and blurs, made by another program.
shaders=$(dirname "$(find "$prefix" -name fullscreen.vert)")
if "$work/with_cmake/minimal_host" "$shaders" "$work/square.exr" 2>"$work/refused"; then
  oiiotool --create 64x64 4 --fill:color=1,1,1,1 16x16+24+24 --kernel box 9x9 --convolve -o "$work/expected.exr"
  oiiotool "$work/square.exr" "$work/expected.exr" --fail 1e-6 --diff
else
  cat "$work/refused"
  grep -q 'no EGL display\|no OpenGL 4.2 context' "$work/refused"  # no driver here: nothing to compare
fi

# What helps at the command line, where shells and man look for it.
for page in man/man1/quorvel.1 bash-completion/completions/quorvel zsh/site-functions/_quorvel fish/vendor_completions.d/quorvel.fish; do
  [ -s "$prefix/share/$page" ] || { echo "share/$page is not installed"; exit 1; }
done

# Every public header says who may call it from which thread, in the three terms.
silent=$(find "$prefix/include/qv" -name '*.h' ! -name export.h -exec \
  grep -LiE 'thread-safe|externally synchronised|GL thread only' {} +) || true
[ -z "$silent" ] || { printf 'says nothing of threads: %s\n' $silent; exit 1; }

pc=$(find "$prefix" -name quorvel_core.pc -printf '%h\n')
# Before 1.0 a minor version may break callers: the loader must not take one for another.
version=$(PKG_CONFIG_PATH=$pc pkg-config --modversion quorvel_core)
[[ $version == 0.* ]] && abi=${version%.*} || abi=${version%%.*}
objdump -p "$(dirname "$pc")/libquorvel_core.so" | grep "SONAME *libquorvel_core.so.$abi\$" >/dev/null ||
  { echo "libquorvel_core.so of $version does not name itself .so.$abi"; exit 1; }
flags=$(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs quorvel_core)
# shellcheck disable=SC2086
"$compiler" -std=c++20 "$work/consumer/consumer.cpp" $flags -o "$work/with_pkg_config"
LD_LIBRARY_PATH=$(PKG_CONFIG_PATH=$pc pkg-config --variable=libdir quorvel_core) "$work/with_pkg_config"

# The Python package of an installed copy, of both Debian packages unpacked over each other, and of a wheel finds
# its own library and fragment programs.
python_package() {
  PYTHONPATH=$1/$2 PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 - "$1" "$source" <<'PYTHON'
import ctypes, os, sys, quorvel, quorvel.core
prefix, source = sys.argv[1:]
maps = {line.split()[-1] for line in open("/proc/self/maps") if "quorvel" in line}
strange = [path for path in (*maps, quorvel._quorvel.shader_folder()) if not path.startswith(prefix + "/")]
assert len(maps) == 2 and not strange, (maps, strange)
assert quorvel.core.oiio_runtime_version(), "what reads files through OpenImageIO is not found"
core = next(path for path in maps if "libquorvel_core" in path)
ctypes.CDLL(os.path.join(os.path.dirname(core), "libquorvel_host_images.so"))
assert quorvel.Composition.load(source + "/examples/shot.json")["dusk"].gamma[0] == 0.7
PYTHON
}
if [ -d "$prefix/lib/python3" ]; then
  python_package "$prefix" lib/python3/dist-packages
  (cd "$work" && "${cmake%cmake}cpack" -G DEB -B "$work/packages" --config "$build/CPackConfig.cmake" >cpack.log)
  for package in "$work"/packages/*.deb; do dpkg-deb -x "$package" "$work/root"; done
  [ "$(find "$work/packages" -maxdepth 1 -name "*.deb" | wc -l)" = 2 ]
  python_package "$work/root/usr" lib/python3/dist-packages
  dpkg-deb -f "$work"/packages/python3-quorvel_*.deb Depends | grep 'quorvel-core (= .*python3-numpy.*libopencolorio' >/dev/null
  dpkg-deb -f "$work"/packages/quorvel-core_*.deb Depends | grep 'libopenimageio[0-9]' >/dev/null
  QUORVEL_BUILD=$build /usr/bin/python3 -m pip install -q --no-index --no-build-isolation --no-deps \
    --root-user-action=ignore --target "$work/wheel" "$source"
  python_package "$work/wheel" .
fi
