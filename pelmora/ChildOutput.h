#pragma once

#include <functional>
#include <string_view>

#include "platform/ChildProcess.h"

// The commands that run other programs (`pelmora run`, and git for
// `pelmora changes`) read both of a child's pipes the same way.
namespace pelmora::cli {

// Hands each chunk of the child's piped output and errors to `take`, in the
// order they arrive, until both pipes end; it does not wait for the child.
// Both pipes are polled together: a child blocked on a full error pipe would
// never close its output. When `take` returns false that pipe is closed at
// once, so the child's next write to it fails as it would had its reader
// gone away.
void readOutput(platform::ChildProcess& child,
                const std::function<bool(std::string_view chunk, bool isStderr)>& take);

} // namespace pelmora::cli
