#pragma once

#include "session/HookEvent.h"
#include "session/SessionRecord.h"

namespace pelmora::EventReducer {

// Folds one event into the record. True when the session tracks this event
// (the caller writes the record); false when it does not, and then the
// caller must discard every change made here.
bool apply(const HookEvent& event, SessionRecord& record, double now);

} // namespace pelmora::EventReducer
