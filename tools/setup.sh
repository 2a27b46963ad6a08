#!/usr/bin/env bash
# Installs what building and testing sto needs on a Debian machine, and only
# what is missing: cmake, g++, make, GoogleTest/GoogleMock and Google
# Benchmark. Further Debian package names may be given as arguments
# (tools/run-bench.sh adds libboost-serialization-dev and libcereal-dev).
#
#   tools/setup.sh [package...]
set -euo pipefail

export DEBIAN_FRONTEND=noninteractive

# command -> package providing it
declare -A tool_packages=(
    [cmake]=cmake
    [g++]=g++
    [make]=make
)
packages=(libabsl-dev libgtest-dev libgmock-dev libbenchmark-dev "$@")

is_installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

missing=()
for tool in "${!tool_packages[@]}"; do
    if ! command -v "$tool" >/dev/null 2>&1; then
        missing+=("${tool_packages[$tool]}")
    fi
done
for package in "${packages[@]}"; do
    if ! is_installed "$package"; then
        missing+=("$package")
    fi
done

if [ "${#missing[@]}" -eq 0 ]; then
    echo "setup: everything needed is installed"
    exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo --preserve-env=DEBIAN_FRONTEND)
else
    echo "setup: missing ${missing[*]}; run as root or install sudo" >&2
    exit 1
fi

echo "setup: installing ${missing[*]}"
"${as_root[@]}" apt-get update
"${as_root[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
