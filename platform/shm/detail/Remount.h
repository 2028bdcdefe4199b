// Puts a table right that a former writer left, in place, beside its readers.
#pragma once

#include "platform/shm/AttachReport.h"
#include "platform/shm/detail/Order.h"
#include "platform/shm/detail/Survey.h"

namespace Brane::Detail {

// Stores only the differences between what stands and what the survey wants, so
// that no reader ever misses a standing key. Killed at any store, the next survey
// wants the same: it judges by the slots, and these keep saying the same until
// their key's index word is right.
//
//   1 counts that are too low    a standing key beyond the line comes into reach
//   2 words to be set            each switches a key to its newer record, or shows
//                                one that no word named
//   3 older slots = Replaced     only now: the other way round their keys would be
//                                missing, for good if killed here
//   4 words to be cleared        of no record, or of a key that now stands
//   elsewhere 5 broken slots = Free        nothing names them any more 6 counts
//   that are too high 7 the journal                the last intent's notice goes
//   out; beyond that
//                                change the head moves on so far that followers
//                                compare everything
void putRight( const WriterView& view, const Survey& survey, AttachReport& report );

}
