#pragma once

#include <string>

#include "integration/FileEdit.h"

namespace pelmora::cli {

// What `--dry-run` shows for one file: a unified diff as `diff -u` prints
// it, with "---"/"+++" headers naming the file (/dev/null for a file that
// is created or deleted) and hunks with three lines of context. Empty when
// the file does not change.
//
//     --- /Users/ana/.codex/hooks.json
//     +++ /Users/ana/.codex/hooks.json
//     @@ -1,3 +1,12 @@
//
// Made here rather than by running diff: it needs no temporary files, and
// a settings file is small enough for a plain longest-common-subsequence
// table once the lines both texts share at their ends are set aside.
std::string unifiedDiff(const FileEdit& change);

} // namespace pelmora::cli
