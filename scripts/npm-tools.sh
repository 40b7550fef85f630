#!/usr/bin/env bash
# Installs what the tests run as real consumers into a cache folder outside
# the build, once; later runs find it there and do nothing. It all comes
# from the npm registry: a Node.js of its own (the node-linux-* package
# carries the binary, the npm package the installer), the TypeScript parser
# for the pi extension, and the agents' command-line programs that the
# end-to-end suite drives. The system's node, if any, is not used: Debian's
# is too old for the agents, and its npm is hundreds of packages.
#
#   scripts/npm-tools.sh          install what is missing, print the folder
#
# The tests look in the same folder and skip, saying why, when something is
# missing. PELMORA_NPM_CACHE chooses the folder (default: the user's cache
# folder). Every version is pinned here and nowhere else.
set -euo pipefail

dir="${PELMORA_NPM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/pelmora/npm}"
registry="${PELMORA_NPM_REGISTRY:-https://registry.npmjs.org}"
node_version=22.23.3
npm_version=11.19.1
packages=(
    typescript@5.9.3
    @anthropic-ai/claude-code@2.1.330
    @openai/codex@0.169.0
    @qwen-code/qwen-code@0.24.4
    @mariozechner/pi-coding-agent@0.73.1
    command-code@1.64.0
    # command-code imports this package's default export, which its ESM
    # build no longer has from 1.44 on: the newest that ^1.30.0 allows
    # stops the program before it starts.
    @opentelemetry/semantic-conventions@1.43.0
)

case "$(uname -s)-$(uname -m)" in
Linux-x86_64) platform=linux-x64 ;;
Linux-aarch64) platform=linux-arm64 ;;
*)
    echo "npm-tools: no Node.js package for $(uname -s) $(uname -m); the checks that run node are skipped" >&2
    exit 1
    ;;
esac

# fetch NAME VERSION FOLDER: the package's tarball, checked against the
# integrity the registry gives, unpacked into FOLDER. Python is already
# needed by the build, and its urllib is the only client needed here.
fetch() {
    python3 - "$registry" "$1" "$2" "$3" <<'EOF'
import base64, hashlib, io, json, shutil, sys, tarfile, urllib.parse, urllib.request
registry, name, version, folder = sys.argv[1:]
def get(url):
    with urllib.request.urlopen(url, timeout=60) as reply:
        return reply.read()
meta = json.loads(get(f"{registry}/{urllib.parse.quote(name, safe='@')}/{version}"))
tarball = get(meta["dist"]["tarball"])
algorithm, _, digest = meta["dist"]["integrity"].partition("-")
if base64.b64encode(hashlib.new(algorithm, tarball).digest()).decode() != digest:
    sys.exit(f"{name}@{version}: the tarball does not match its integrity")
shutil.rmtree(folder, ignore_errors=True)
with tarfile.open(fileobj=io.BytesIO(tarball)) as archive:
    for member in archive.getmembers():
        member.name = member.name.split("/", 1)[-1]  # the package/ folder
        if member.name.startswith("/") or ".." in member.name.split("/"):
            sys.exit(f"{name}@{version}: {member.name} would land outside {folder}")
    # Extraction filters came with Python 3.11.4; Debian 12 has 3.11.2.
    archive.extractall(folder, **({"filter": "tar"} if hasattr(tarfile, "tar_filter") else {}))
EOF
}

node="$dir/node/bin/node"
npm_cli="$dir/npm/bin/npm-cli.js"
mkdir -p "$dir"
if [ "$("$node" --version 2>/dev/null)" != "v$node_version" ]; then
    if ! fetch "node-$platform" "$node_version" "$dir/node" 2>"$dir/install.log"; then
        echo "npm-tools: cannot fetch Node.js $node_version from the npm registry (see $dir/install.log); the tests that need it skip" >&2
        exit 1
    fi
    chmod +x "$node"
fi
if [ "$("$node" "$npm_cli" --version 2>/dev/null)" != "$npm_version" ]; then
    if ! fetch npm "$npm_version" "$dir/npm" 2>"$dir/install.log"; then
        echo "npm-tools: cannot fetch npm $npm_version from the npm registry (see $dir/install.log); the tests that need it skip" >&2
        exit 1
    fi
fi

installed() {
    local name="${1%@*}" version="${1##*@}"
    [ "$("$node" -p "try { require('$dir/node_modules/$name/package.json').version } catch { '' }" \
        2>/dev/null)" = "$version" ]
}

missing=()
for p in "${packages[@]}"; do
    installed "$p" || missing+=("$p")
done
if ((${#missing[@]})); then
    [ -f "$dir/package.json" ] || echo '{ "private": true }' >"$dir/package.json"
    # The agents' own install scripts fetch nothing the suite needs: their
    # native programs come as optional packages.
    # --use-openssl-ca: npm trusts what the system trusts (a proxy's own
    # authority installed there included), not only node's built-in list.
    if ! PATH="$dir/node/bin:$PATH" "$node" --use-openssl-ca "$npm_cli" install --prefix "$dir" --registry "$registry" --no-audit --no-fund \
        --no-update-notifier --loglevel=error "${missing[@]}" >"$dir/install.log" 2>&1; then
        echo "npm-tools: cannot install ${missing[*]} from the npm registry (see $dir/install.log); the tests that need them skip" >&2
        exit 1
    fi
fi
echo "$dir"
