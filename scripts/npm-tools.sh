#!/usr/bin/env bash
# Installs the pinned npm packages that the tests use as real consumers (the
# TypeScript parser for the pi extension) into a cache folder outside the
# build, once; later runs find them there and do nothing. The tests look in
# the same folder and skip, saying why, when a package is missing.
#
#   scripts/npm-tools.sh          install what is missing, print the folder
#
# PELMORA_NPM_CACHE chooses the folder (default: the user's cache folder).
set -euo pipefail

dir="${PELMORA_NPM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/pelmora/npm}"
packages=(typescript@5.9.3)

installed() {
    local name="${1%@*}" version="${1##*@}"
    [ "$(node -p "try { require('$dir/node_modules/$name/package.json').version } catch { '' }" \
        2>/dev/null)" = "$version" ]
}

if ! command -v npm >/dev/null || ! command -v node >/dev/null; then
    echo "npm-tools: node and npm are not installed; the TypeScript checks will be skipped" >&2
    exit 1
fi

missing=()
for p in "${packages[@]}"; do
    installed "$p" || missing+=("$p")
done
if ((${#missing[@]})); then
    mkdir -p "$dir"
    [ -f "$dir/package.json" ] || echo '{ "private": true }' >"$dir/package.json"
    if ! npm install --prefix "$dir" --no-audit --no-fund --loglevel=error "${missing[@]}" \
        >"$dir/install.log" 2>&1; then
        echo "npm-tools: cannot install ${missing[*]} from the npm registry (see $dir/install.log)" >&2
        exit 1
    fi
fi
echo "$dir"
