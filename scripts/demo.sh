#!/usr/bin/env bash
# Installs what is missing, builds the release, and runs the main job on a
# sample.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"

hook=build/release/pelmora-hook/pelmora-hook
echo
echo "pelmora-hook is built ($hook); its hook flow is not wired yet."
echo "A run on a sample event exits 0 with nothing on stdout, as it must:"
echo '{"hook_event_name":"SessionStart","session_id":"demo","cwd":"/tmp"}' | "$hook" --source claude
echo "exit status: $?"
