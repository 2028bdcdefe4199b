// Repairs a former writer's table in place, beside its readers.
#pragma once

#include "platform/shm/AttachReport.h"
#include "platform/shm/detail/Order.h"
#include "platform/shm/detail/Survey.h"

namespace Brane::Detail {

// Stores only the differences between the table and the survey's wanted state, so
// that no reader ever misses a standing key. When killed at any store, the next
// survey wants the same state: it judges by the slots, which stay as they are until
// their key's index word is right. Only the list of repairs already made is lost;
// so repairs that followers would not hear of are announced before the first.
//
//   1 the head's entry           only with repairs beyond the last intent, or where
//                                the head is damaged: it then reads as damaged
//                                until 9, for the next remount too
//   2 counts that are too low    a standing key beyond the line comes into reach
//   3 words to be set            each switches a key to its newer record, or shows
//                                one that no word named
//   4 older slots = Replaced     only now: the other way round their keys would be
//                                missing, for good if killed here
//   5 words to be cleared        of no record, or of a key that stands elsewhere
//   6 broken slots = Free        nothing names them any more
//   7 counts that are too high
//   8 the journal's entries      only after 1: of another time, they are no intent
//   9 the journal's head         the last intent's notice goes out; after 1 it moves
//                                so far that followers compare everything, and where
//                                the head was damaged so that none has heard of it
void putRight( const WriterView& view, const Survey& survey, AttachReport& report );

}
