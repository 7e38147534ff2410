# Sourced by ./run-tests and ./run-sample: the build needs libsodium's headers. On a
# Debian machine without them, install libsodium-dev (as root, else through sudo).
ensure_libsodium() {
  if pkg-config --exists libsodium 2>/dev/null || [ -e /usr/include/sodium.h ]; then return 0; fi
  echo "libsodium-dev is missing: installing it"
  if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
    apt-get install -y libsodium-dev pkg-config >/dev/null || { apt-get update >/dev/null && apt-get install -y libsodium-dev pkg-config >/dev/null; }
  elif command -v sudo >/dev/null && command -v apt-get >/dev/null; then
    sudo apt-get install -y libsodium-dev pkg-config >/dev/null || { sudo apt-get update >/dev/null && sudo apt-get install -y libsodium-dev pkg-config >/dev/null; }
  fi
  if ! pkg-config --exists libsodium 2>/dev/null; then
    echo "libsodium-dev could not be installed (needs root or sudo with apt-get): install it and run again" >&2
    return 1
  fi
}
