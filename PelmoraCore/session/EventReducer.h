#pragma once

#include "session/HookEvent.h"
#include "session/SessionRecord.h"

namespace pelmora::EventReducer {

// Folds one event into the record. True when the session tracks this event
// (the caller writes the record); false when it does not, and then the
// caller must discard every change made here.
bool apply(const HookEvent& event, SessionRecord& record, double now);

// Whether `apply` can track this event at all: it depends on the event
// alone, so a caller can spare itself the session file of an event that no
// record would keep.
bool tracks(const HookEvent& event);

} // namespace pelmora::EventReducer
