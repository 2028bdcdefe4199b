#include "platform/shm/detail/Mirror.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/shm/detail/SlotOrder.h"

namespace Brane::Detail {

namespace {

// No index word: its slot number is beyond any table.
constexpr uint64_t unknownWord = ~uint64_t( 0 );

constexpr size_t linesAhead = 32;
constexpr size_t slotsAhead = 16;

}

void Mirror::Teller::written( const std::byte* record, const Found& found ) {
   ++drained.written;
   callback( { Change::written, record, record, found.position, found } );
}

void Mirror::Teller::removed( const std::byte* key, Position position ) {
   ++drained.removed;
   callback( { Change::removed, key, nullptr, position, {} } );
}

Mirror::Mirror( ReaderTable& table )
   : table_( table ), instance_( table.instance() ) {
   record_.resize( table.layout().recordSize );
   other_.resize( table.layout().recordSize );
   load();
}

// Remembers the present records. Reads the head first: a change that this pass does
// not see comes after that head in the journal.
void Mirror::load() {
   if ( !instance_ ) return;
   seen_ = instance_->head();
   known_ =
      Remembered( instance_->geometry().positions(), table_.layout().keySize );
   const std::vector<Position> standing = standingBySlot( instance_->view() );
   size_t words = 0, slots = 0;
   for ( size_t i = 0; i < standing.size(); ++i ) {
      fetchAhead( standing, i, words, slots );
      const Position p = standing[i];
      auto copy = instance_->copy( p, record_.data() );
      Lookup found = table_.count( *instance_, copy, p, record_.data() );
      if ( found == lookupBusy ) again_.push_back( p );
      if ( found == lookupFound ) known_.keyIs( p, record_.data() );
      if ( found == lookupFound || found == lookupDamaged ) {
         known_.wordIs( p, copy.word );
      }
   }
}

// Before the i-th of these positions is looked at; `words` and `slots` were fetched.
void Mirror::fetchAhead( const std::vector<Position>& positions, size_t i,
                         size_t& words, size_t& slots ) const {
   for ( ; words < positions.size() && words < i + linesAhead; ++words ) {
      instance_->fetchWord( positions[words] );
      known_.fetch( positions[words] );
   }
   for ( ; slots < positions.size() && slots < i + slotsAhead; ++slots )
      instance_->fetchSlot( instance_->wordAt( positions[slots] ) );
}

TableFollower::Drained Mirror::drain( const TableFollower::Callback& callback,
                                      uint32_t limit ) {
   Teller teller{ callback, limit, {} };
   // Changes first, they are urgent; checking for another instance costs a system
   // call. A table that has grown is compared as a whole, so that no key comes twice.
   const bool left = instance_ && loadWord( instance_->view().retired() ) != 0;
   if ( instance_ && !left ) follow( teller );
   teller.drained.stateChanged = table_.poll();
   bool moved = table_.instance() != instance_;
   if ( left && !moved ) follow( teller );
   // Unreadable is not gone: the known records are kept until a table can be read.
   bool unreadable = !table_.instance() && table_.state() != readerAbsent;
   if ( moved && !unreadable ) {
      teller.drained.more = false;
      moveTo( table_.instance(), teller );
   }
   teller.drained.again = !again_.empty();
   bool caughtUp = !teller.drained.more && !teller.drained.again;
   if ( !met_.empty() && caughtUp ) settleMet( teller );
   return teller.drained;
}

// Keys told already, or present at the start, are remembered at their positions.
void Mirror::met( Position position, const std::byte* key ) {
   const uint32_t size = table_.layout().keySize;
   const std::byte* known =
      position < known_.positions() ? known_.key( position ) : nullptr;
   if ( known && std::memcmp( known, key, size ) == 0 ) return;
   met_.emplace( key, key + size );
}

// Once all changes are told, a key that was met is either remembered or gone.
void Mirror::settleMet( Teller& teller ) {
   while ( !met_.empty() && !teller.full() ) {
      const auto key = std::move( met_.extract( met_.begin() ).value() );
      if ( !instance_ || !knownElsewhere( key.data() ) )
         teller.removed( key.data(), noPosition );
   }
   teller.drained.more = !met_.empty();
}

// Only within an instance, and until the generations repeat, does a word name one record.
bool Mirror::stands( const Found& found ) const {
   return found.word && instance_ && instance_->id() == found.instance &&
          instance_->head() - seen_ <= generationMask &&
          loadWord( instance_->view().retired() ) == 0 &&
          instance_->wordAt( found.position ) == found.word;
}

bool Mirror::pending() const {
   return instance_ &&
          ( instance_->head() != seen_ || scanning() || !again_.empty() ||
            loadWord( instance_->view().retired() ) != 0 );
}

// What was known is compared at once, the rest as in a scan.
void Mirror::moveTo( std::shared_ptr<const Instance> instance, Teller& teller ) {
   if ( !instance ) return forgetAll( teller );
   const auto former = std::exchange( instance_, std::move( instance ) );
   again_.clear();
   // Before the records: what changes meanwhile comes after this head.
   seen_ = instance_->head();
   const Remembered known = std::exchange(
      known_,
      Remembered( instance_->geometry().positions(), table_.layout().keySize ) );
   if ( former ) tellDifference( *former, known, teller );
   startScan( seen_ );
   follow( teller );
}

// The former instance is still mapped: its records tell whether a value differs.
void Mirror::tellDifference( const Instance& former, const Remembered& known,
                             Teller& teller ) {
   Position ahead = 0;
   for ( Position p = 0; p < known.positions(); ++p ) {
      const std::byte* key = known.key( p );
      if ( !key ) continue;
      for ( ; ahead < known.positions() && ahead <= p + slotsAhead; ++ahead ) {
         if ( known.key( ahead ) )
            instance_->fetchLine( instance_->hashOf( known.key( ahead ) ) );
      }
      Position at = noPosition;
      auto copy =
         instance_->lookup( key, instance_->hashOf( key ), record_.data(), &at );
      Lookup found = table_.count( *instance_, copy, at, record_.data() );
      if ( found != lookupFound ) {
         // Absent, or to be found by the scan.
         teller.removed( key, p );
         continue;
      }
      known_.wordIs( at, copy.word );
      known_.keyIs( at, key );
      tellKept( former, known.word( p ), p, at, teller );
   }
}

// record_ is the key's new record. Does not report it when the former one was told
// and is equal.
void Mirror::tellKept( const Instance& former, uint64_t word, Position formerAt,
                       Position at, Teller& teller ) {
   auto old = former.copy( formerAt, other_.data() );
   if ( old.result == lookupFound && old.word == word && record_ == other_ ) return;
   teller.written( record_.data(), { at, known_.word( at ), instance_->id() } );
}

void Mirror::forgetAll( Teller& teller ) {
   instance_.reset();
   again_.clear();
   endScan();
   Remembered known = std::exchange( known_, Remembered() );
   for ( Position p = 0; p < known.positions(); ++p ) {
      if ( const std::byte* key = known.key( p ) ) teller.removed( key, p );
   }
}

void Mirror::follow( Teller& teller ) {
   uint64_t head = instance_->head();
   std::vector<Position> again = std::exchange( again_, {} );
   if ( !scanning() ) followJournal( head, teller );
   if ( scanning() ) scan( teller );
   for ( Position p : again ) compare( p, instance_->wordAt( p ), teller );
   if ( scanning() || seen_ != head ) {
      teller.drained.more = true;
   } else {
      compareIntent( head, teller );
   }
}

// Follows the journal up to the limit; starts a scan when the journal is not
// enough.
void Mirror::followJournal( uint64_t head, Teller& teller ) {
   uint64_t room = teller.limit - std::min( teller.told(), teller.limit );
   uint64_t last = head - seen_ < instance_->geometry().journalEntries
                      ? seen_ + std::min( head - seen_, room )
                      : head;
   if ( !collect( last ) ) return startScan( head );
   size_t words = 0, slots = 0;
   for ( size_t i = 0; i < candidates_.size(); ++i ) {
      fetchAhead( candidates_, i, words, slots );
      compare( candidates_[i], instance_->wordAt( candidates_[i] ), teller );
   }
   seen_ = last;
}

// Collects the positions of the changes since seen_; false if the journal no longer
// holds them all. A head that went backwards is far ahead in this arithmetic.
bool Mirror::collect( uint64_t head ) {
   candidates_.clear();
   uint32_t positions = known_.positions();
   if ( head - seen_ >= instance_->geometry().journalEntries ) return false;
   for ( uint64_t sequence = seen_ + 1; sequence <= head; ++sequence ) {
      uint64_t entry = loadWord( instance_->view().journal( sequence ) );
      Position position = positionOfEntry( entry );
      bool sound =
         entryIsOf( entry, sequence ) && position < positions && isWord( position );
      if ( !sound ) return false;
      candidates_.push_back( position );
   }
   return true;
}

// Compares all positions, and tells of what differs over as many drains as needed; later
// changes are in the journal from `head` on. Once generations may have repeated, every
// word counts as changed.
void Mirror::startScan( uint64_t head ) {
   endScan();
   scanning_ = true;
   scanHead_ = head;
   const bool repeated = head - seen_ > generationMask;
   SlotOrder differing( instance_->geometry().slotCount );
   for ( Position p = 0; p < known_.positions(); ++p ) {
      if ( !isWord( p ) ) continue;
      if ( repeated && known_.word( p ) ) known_.wordIs( p, unknownWord );
      const uint64_t word = instance_->wordAt( p );
      if ( word != known_.word( p ) ) differing.add( p, slotOf( word ) );
   }
   scan_ = differing.take();
}

void Mirror::endScan() {
   scanning_ = false;
   scan_ = {};
   scanned_ = 0;
}

void Mirror::scan( Teller& teller ) {
   teller.drained.lapped = true;
   size_t words = scanned_, slots = scanned_;
   for ( ; scanned_ < scan_.size(); ++scanned_ ) {
      if ( teller.full() ) return;
      fetchAhead( scan_, scanned_, words, slots );
      compare( scan_[scanned_], instance_->wordAt( scan_[scanned_] ), teller );
   }
   endScan();
   seen_ = scanHead_;
}

// The change that a killed writer was making: readers may see it already, but only
// the next writer moves the head.
void Mirror::compareIntent( uint64_t head, Teller& teller ) {
   uint64_t entry = loadWord( instance_->view().journal( head + 1 ) );
   Position position = positionOfEntry( entry );
   bool sound = entryIsOf( entry, head + 1 ) && position < known_.positions() &&
                isWord( position );
   if ( sound ) compare( position, instance_->effectiveWord( position ), teller );
}

void Mirror::compare( Position position, uint64_t word, Teller& teller ) {
   if ( word == known_.word( position ) ) return;
   if ( !word ) return vanished( position, teller );
   auto copy = instance_->copy( position, record_.data() );
   switch ( table_.count( *instance_, copy, position, record_.data() ) ) {
      case lookupBusy:
         again_.push_back( position );
         return;
      case lookupAbsent:
         return vanished( position, teller );
      case lookupDamaged:
         known_.wordIs( position, copy.word );
         return;
      case lookupFound:
         return replaced( position, copy.word, teller );
   }
}

void Mirror::vanished( Position position, Teller& teller ) {
   known_.wordIs( position, 0 );
   const std::byte* key = known_.key( position );
   if ( !key ) return;
   known_.keyDel( position );
   // The pool still holds the key's bytes.
   if ( !knownElsewhere( key ) ) teller.removed( key, position );
}

// record_ is the record there now, under the same key or another.
void Mirror::replaced( Position position, uint64_t word, Teller& teller ) {
   const std::byte* key = known_.key( position );
   bool other =
      key && std::memcmp( key, record_.data(), table_.layout().keySize ) != 0;
   if ( other ) vanished( position, teller );
   known_.wordIs( position, word );
   known_.keyIs( position, record_.data() );
   teller.written( record_.data(), { position, word, instance_->id() } );
}

// Was the key told as standing at another place? Then that place's word reports its
// end. The table's present content does not matter: a key that is remembered
// nowhere and stands after all has a change to come.
bool Mirror::knownElsewhere( const std::byte* key ) const {
   uint64_t hash = instance_->hashOf( key );
   Position begin = instance_->geometry().homeOf( hash ) * lineWords;
   for ( Position p = begin; p < begin + instance_->geometry().reach * lineWords;
         ++p ) {
      uint64_t word = known_.word( p );
      if ( word != unknownWord && !hasTag( word, tagOf( hash ) ) ) continue;
      const std::byte* other = known_.key( p );
      if ( other && std::memcmp( other, key, table_.layout().keySize ) == 0 ) {
         return true;
      }
   }
   return false;
}

}
