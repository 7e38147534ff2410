# Sourced by the benchmark scripts: the executable and the media they measure, the media
# made once under $work.

# build_exe: sets `exe` to ZYN_EXE where given (another build, or one made elsewhere),
# else to the Release build in $build, made first.
build_exe() {
  if [[ -z "${ZYN_EXE:-}" ]]; then
    cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null || exit 2
    cmake --build "$build" -j"$(nproc)" --target ZYNInsMediaCheck >/dev/null || exit 2
  fi
  exe="${ZYN_EXE:-$repo/$build/ZYNInsMediaCheck}"
}

# make_media NAME FILES MIN_BYTES MAX_BYTES: volume folder 1 of FILES files, 50 to a folder.
make_media() {
  local name="$1" files="$2" low="$3" high="$4" dir="$work/$1"
  [[ -e "$dir/.made" ]] && return 0
  echo "== making $name: $files files of $low to $high bytes" >&2
  rm -rf "$dir" && mkdir -p "$dir/media/1"
  python3 - "$dir/media/1" "$files" "$low" "$high" <<'PY' || exit 2
import os, random, sys
root, count, low, high = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
rnd = random.Random(7)
pool = rnd.randbytes(high + 1 << 4)
for i in range(count):
    folder = os.path.join(root, "d%04d" % (i // 2000), "e%02d" % (i // 50 % 40))
    if i % 50 == 0:
        os.makedirs(folder, exist_ok=True)
    size = rnd.randint(low, high)
    start = rnd.randrange(0, len(pool) - size)
    path = os.path.join(folder, "f%07d.bin" % i)
    with open(path, "wb") as out:
        out.write(pool[start:start + size])
    os.utime(path, (1600000000, 1600000000))
PY
  touch "$dir/.made"
}

# damage NAME: a copy sharing the files by hard links, with 30% of them rewritten.
damage() {
  local dir="$work/$1"
  [[ -e "$dir/.damaged" ]] && return 0
  rm -rf "$dir/damaged" && cp -al "$dir/media" "$dir/damaged"
  python3 - "$dir/damaged" <<'PY' || exit 2
import os, sys
n = 0
for folder, _, names in sorted(os.walk(sys.argv[1])):
    for name in sorted(names):
        n += 1
        if n % 10 >= 3:
            continue
        path = os.path.join(folder, name)
        with open(path, "rb") as old:
            data = old.read()
        stat = os.stat(path)
        os.unlink(path)  # a new file: the original keeps its bytes
        with open(path, "wb") as new:
            new.write(data + b"x")
        os.utime(path, (stat.st_atime, stat.st_mtime))
PY
  touch "$dir/.damaged"
}
