// The order of the writer's stores, and why a kill between any two does no harm.
//
// A record is written out of place; switching one index word is the moment of
// change. Readers take what the index names if its slot is Live, and treat a
// Removed slot as no record. A remount takes each Live slot whose checksum holds;
// of two with one key the one of the larger sequence. So, after each store:
//
//   put                     a reader sees        a remount finds
//   1 stamp = Writing       the old record       the old; the slot is free
//   2 record, checksum      the old record       the old; the slot is free
//   3 journal entry         the old record       the old; notice published in vain
//   4 passed counts + 1     the old record       the old; counts put back
//   5 stamp = Live          the old record       both: switches the index word,
//                                                retires the old, publishes
//   6 index word            the new record       both: retires the old, publishes
//   7 old stamp = Replaced  the new record       the new; publishes
//   8 journal head          the new, and hears   the new
//
//   remove                  a reader sees        a remount finds
//   1 journal entry         the record           the record; notice in vain
//   2 stamp = Removed       no record            no record; clears word and counts,
//                                                publishes
//   3 index word = 0        no record            no record; counts, publishes
//   4 passed counts - 1     no record            no record; publishes
//   5 journal head          none, and hears      no record
//
// "Old record" is "no record" for a new key. A put that is refused stops after 2 and
// frees the slot, which no index word ever named. What forbids another order:
// - 1 before 2: a reader that is copying this slot's former record must see the
//   stamp differ once it has copied one new byte. The fence keeps them apart.
// - 2 before 5: Live promises a whole record to remounts.
// - 3 before any change: else a writer killed between change and entry leaves a
//   change that nobody is told of. A remount publishes the last intent, and readers
//   look at it themselves when the bell tells of the writer's death.
// - 4 before 6, and 4 after 3 in remove: a count of zero ends a reader's search, so
//   it must not be lower than the keys that stand beyond the line.
// - 5 before 6: readers take a slot that the index names and that is not Live for
//   overtaken or damaged.
// - 6 before 7: between them both are Live, which a remount can tell apart; the
//   other way round the key would be missing meanwhile.
// - 7 at all: a freed slot that still looked valid would come back after its key's
//   later removal. The slot is free for use only after 7.
// - In remove, stamp before word: cleared first, the word would be restored by a
//   remount, which takes every Live slot: the removal would be taken back.
// A table grows by a new instance, made beside this one and renamed into its place: a
// kill before the rename leaves this instance untouched, one after it the next, which
// holds the same records under the same sequences. This one is marked as retired only
// after the rename, when readers find the next under the name.
//
// Readers compare the whole stamp after copying, 61 bits of sequence and the state:
// it never repeats, however long they were stopped.
#pragma once

#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Geometry.h"

namespace Brane::Detail {

using WriterView = View<std::byte>;

// A key's place, or its future place: word zero.
struct Place {
   Position position = noPosition;
   uint64_t word = 0;
};

// Put, store 1.
PIMSM_SHM_HOT void claimSlot( const WriterView& view, uint32_t slot,
                              uint64_t sequence ) {
   storeWord( &view.slot( slot )->stamp, stampOf( sequence, slotWriting ) );
   storeFence();
}

// Put, store 2.
PIMSM_SHM_HOT void fillSlot( const WriterView& view, const void* record,
                             const RecordIdentity& identity ) {
   auto slot = uint32_t( identity.slot );
   uint32_t checksum = storeRecord( view.record( slot ), record,
                                    view.geometry.recordSize, identity );
   storeWord( &view.slot( slot )->checksum, checksum );
}

// Store 3 of put, 1 of remove.
PIMSM_SHM_HOT void announce( const WriterView& view, Position position,
                             uint64_t sequence ) {
   storeWord( view.journal( sequence ), journalEntry( position, sequence ) );
}

// Counts the key in each line that a key of this home passes on its way to the
// position.
inline void addPassed( const WriterView& view, uint32_t home, Position position,
                       int64_t change ) {
   for ( uint32_t line = home; line < position / lineWords; ++line ) {
      storeWord( view.passed( line ),
                 *view.passed( line ) + static_cast<uint64_t>( change ) );
   }
}

// Put, stores 4 to 6, for a filled slot.
PIMSM_SHM_HOT void enter( const WriterView& view, const Place& place,
                          const RecordIdentity& identity ) {
   auto slot = uint32_t( identity.slot );
   if ( !place.word ) {
      addPassed( view, view.geometry.homeOf( identity.hash ), place.position, 1 );
   }
   storeWord( &view.slot( slot )->stamp, stampOf( identity.sequence, slotLive ) );
   storeWord( view.index() + place.position,
              indexWord( slot, identity.hash, identity.sequence ) );
}

// Put, stores 3 to 8, for a filled slot.
PIMSM_SHM_HOT void publish( const WriterView& view, const Place& place,
                            const RecordIdentity& identity ) {
   announce( view, place.position, identity.sequence );
   enter( view, place, identity );
   if ( place.word ) {
      uint64_t* old = &view.slot( slotOf( place.word ) )->stamp;
      storeWord( old, stampOf( sequenceOf( *old ), slotReplaced ) );
   }
   storeWord( view.head(), identity.sequence );
}

// Remove, all stores.
inline void retract( const WriterView& view, const Place& place, uint64_t hash,
                     uint64_t sequence ) {
   uint64_t* stamp = &view.slot( slotOf( place.word ) )->stamp;
   announce( view, place.position, sequence );
   storeWord( stamp, stampOf( sequenceOf( *stamp ), slotRemoved ) );
   storeWord( view.index() + place.position, 0 );
   addPassed( view, view.geometry.homeOf( hash ), place.position, -1 );
   storeWord( view.head(), sequence );
}

}
