#!/usr/bin/env bash
# Installs what the build, the tests and the benchmarks need on Debian 12,
# and nothing when it is all there already.
set -euo pipefail

packages=(cmake ninja-build g++ clang pkg-config libpcre2-dev libutf8proc-dev
          libgtest-dev libbenchmark-dev clang-format python3 zsh git)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    echo "setup: installing ${missing[*]}"
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
