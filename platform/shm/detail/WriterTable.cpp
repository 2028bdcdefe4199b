#include "platform/shm/detail/WriterTable.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/base/Assert.h"
#include "platform/shm/detail/Growth.h"
#include "platform/shm/detail/Hash.h"
#include "platform/shm/detail/Lock.h"
#include "platform/shm/detail/Probe.h"
#include "platform/shm/detail/Survey.h"
#include "platform/shm/detail/TableMaker.h"

namespace Brane::Detail {

namespace {

// A batch fetches this many index lines, then as many slots, in a row: address
// translations overlap only where little else is done between them.
constexpr size_t fetchGroup = 8;
// The free slot is fetched this many puts ahead.
constexpr uint32_t freeAhead = 8;
constexpr uint32_t noSlot = UINT32_MAX;

// What a table without a mapping looks at.
alignas( 64 ) constexpr std::byte zeroes[16384] = {};

bool isZero( const void* key, size_t size ) {
   for ( size_t i = 0; i < size / 8; ++i ) {
      if ( wordAt( key, i ) ) return false;
   }
   return true;
}

}

WriterTable::WriterTable( const Mox::String& path,
                          std::shared_ptr<const Layout> layout, uint32_t capacity,
                          const WriterOptions& options )
   : files_( path ),
     layout_( std::move( layout ) ),
     zeroKey_( options.zeroKey ),
     growsAheadFrom_( options.growsAheadFrom ) {
   layout_->check();
   // Before the table has its name: whoever sees the table can watch its bell.
   seat_ = options.seat ? options.seat : std::make_shared<WriterSeat>( path );
   Descriptor former;
   if ( sharesSeat() && access( files_.lock().c_str(), F_OK ) == 0 )
      former = takeWriterLock( files_ );
   TableMaker::open( *this, capacity, options );
   if ( former ) {
      unlink( files_.bell().c_str() );
      unlink( files_.lock().c_str() );
   }
   rest();
   ring();
}

WriterTable::~WriterTable() {
   ring();
}

PIMSM_SHM_HOT uint64_t WriterTable::hashOf( const void* key ) const {
   return keyHash( key, view_.geometry.keySize, view_.seed );
}

void WriterTable::corrupted( Position position, uint32_t slot,
                             const char* what ) const {
   throw CorruptionError( placeText( path(), position, slot ) + ": " + what );
}

void WriterTable::noPlace( bool full ) const {
   if ( full ) {
      throw TableFullError(
         fmt::format( "{}: full with {} records", path(), size_ ) );
   }
   throw ProbeLimitError( fmt::format( "{}: {} index lines are full of keys",
                                       path(), view_.geometry.reach ) );
}

// The slot that an index word names. The writer checks its own mapping, too: a
// stray pointer in this process may have written to it.
PIMSM_SHM_HOT uint32_t WriterTable::checkedSlot( Position position,
                                                 uint64_t word ) const {
   uint32_t slot = slotOf( word );
   if ( slot >= view_.geometry.slotCount ) {
      corrupted( position, slot, "the index names no slot" );
   }
   return slot;
}

PIMSM_SHM_HOT bool WriterTable::holdsKey( Position position, uint64_t word,
                                          const void* key ) const {
   uint32_t slot = checkedSlot( position, word );
   if ( !sameBytes( view_.record( slot ), key, view_.geometry.keySize ) )
      return false;
   uint64_t stamp = view_.slot( slot )->stamp;
   if ( stateOf( stamp ) == slotLive && stampFits( stamp, word ) ) return true;
   corrupted( position, slot, "the slot's stamp does not fit the index" );
}

PIMSM_SHM_HOT bool WriterTable::standsAt( const void* key, uint64_t hash,
                                          Position position ) const {
   if ( position >= view_.geometry.positions() || !isWord( position ) )
      return false;
   uint64_t word = view_.index()[position];
   return hasTag( word, tagOf( hash ) ) &&
          view_.geometry.reaches( hash, position ) &&
          holdsKey( position, word, key );
}

PIMSM_SHM_HOT Place WriterTable::locate( const void* key, uint64_t hash,
                                         Position hint ) const {
   if ( hint != noPosition && standsAt( key, hash, hint ) ) {
      return { hint, view_.index()[hint] };
   }
   return probe( key, hash );
}

// The key's place, or the first free one; noPosition where there is neither.
PIMSM_SHM_HOT Place WriterTable::probe( const void* key, uint64_t hash ) const {
   return probeIn( view_, hash, [&]( Position position, uint64_t word ) {
      return holdsKey( position, word, key );
   } );
}

// As locate(), but refuses a key that cannot be written; nothing is stored before.
PIMSM_SHM_HOT Place WriterTable::placeFor( const void* key, uint64_t hash,
                                           Position hint ) const {
   if ( !zeroKey_ && isZero( key, view_.geometry.keySize ) ) {
      throw Mox::RangeError( path() + ": the all-zero key is not a record" );
   }
   Place place = locate( key, hash, hint );
   if ( place.word ) return place;
   bool full = size_ >= limit_;
   if ( full || place.position == noPosition ) noPlace( full );
   return place;
}

// Fetches the index line of a key to be put, and returns its hash.
PIMSM_SHM_HOT uint64_t WriterTable::hashAhead( const void* key,
                                               Position hint ) const {
   uint64_t hash = hashOf( key );
   Position position = hint < view_.geometry.positions()
                          ? hint
                          : view_.geometry.homeOf( hash ) * lineWords;
   prefetchForStore( reinterpret_cast<const std::byte*>( view_.index() + position ),
                     1 );
   return hash;
}

// Fetches the slot to be replaced: its stamp is stored to, its key compared.
PIMSM_SHM_HOT void WriterTable::fetchSlot( uint64_t hash, Position hint ) const {
   const uint64_t* words = view_.index();
   uint32_t found = 1;
   if ( hint < view_.geometry.positions() ) {
      words += hint;
   } else {
      words += view_.geometry.homeOf( hash ) * lineWords;
      found = wordsWith( words, tagOf( hash ) );
   }
   while ( found ) {
      uint32_t slot = slotOf( words[takeFirst( found )] );
      if ( slot >= view_.geometry.slotCount ) continue;
      prefetchForStore( view_.slotBytes( slot ),
                        sizeof( SlotHead ) + view_.geometry.keySize );
   }
}

// Frees a slot that no index word ever named.
void WriterTable::release( uint32_t slot ) {
   storeWord( &view_.slot( slot )->stamp, stampOf( sequence_, slotFree ) );
   free_.push( slot );
}

PIMSM_SHM_HOT void WriterTable::finish( const WriterView& view, const Place& place,
                                        const void* record,
                                        const RecordIdentity& identity ) {
   publish( view, place, identity );
   sequence_ = identity.sequence;
   if ( place.word ) {
      free_.push( slotOf( place.word ) );
   } else {
      ++size_;
   }
   if ( __builtin_expect( growth_ == nullptr, 1 ) ) return;
   if ( place.word ) growth_->release( slotOf( place.word ) );
   repeat( [&] { growth_->put( record, identity ); } );
}

// Those that hold a record, which the index names.
std::vector<bool> WriterTable::liveSlots() const {
   std::vector<bool> live( view_.geometry.slotCount, true );
   free_.visitRanges( [&]( uint32_t first, uint32_t end ) {
      std::fill( live.begin() + first, live.begin() + end, false );
   } );
   for ( uint32_t slot : reserved_ ) {
      if ( slot != noSlot ) live[slot] = false;
   }
   return live;
}

// Does in the next instance what was done in this one. Where that is refused, it is
// given up.
template <class Change>
void WriterTable::repeat( const Change& change ) {
   try {
      change();
   } catch ( const CreateError& ) {
      giveGrowthUp();
   }
}

// A small table grows at once, a large one begins before it is full.
void WriterTable::decideWhenToGrow() {
   const uint32_t capacity = view_.geometry.capacity;
   const bool ahead = capacity < limit_ && capacity >= growsAheadFrom_;
   growAt_ = ahead ? capacity - std::max( capacity / 8, 1U ) : capacity;
}

void WriterTable::makeRoom( const void* key, uint64_t hash, Position hint ) {
   if ( size_ < view_.geometry.capacity ) return growAhead();
   if ( mustGrow( key, hash, hint ) ) grow();
}

// Refuses nothing: while there is room, the table can wait for memory.
void WriterTable::growAhead() {
   const uint32_t capacity = view_.geometry.capacity;
   try {
      if ( !growth_ ) {
         growth_ = TableMaker::beginGrowth( *this );
         growAt_ = size_;  // the parts are of the room that is left
      }
      growth_->advance( size_ - growAt_ + 1, capacity - growAt_ );
      if ( growth_->complete() ) finishGrowth();
   } catch ( const CreateError& ) {
      giveGrowthUp();
      growAt_ = size_ + ( capacity - size_ + 1 ) / 2;
   }
}

void WriterTable::giveGrowthUp() {
   if ( !growth_ ) return;
   std::shared_ptr<Mapping> mapping = growth_->mapping();
   growth_.reset();
   releaseAside( std::move( mapping ) );
}

// Does a put of the key need room that this instance does not have? A refused key
// makes it no larger.
bool WriterTable::mustGrow( const void* key, uint64_t hash, Position hint ) const {
   if ( size_ >= limit_ || ( !zeroKey_ && isZero( key, view_.geometry.keySize ) ) )
      return false;
   return !locate( key, hash, hint ).word;
}

void WriterTable::grow() {
   try {
      if ( !growth_ ) growth_ = TableMaker::beginGrowth( *this );
      growth_->advance( 1, 1 );
      finishGrowth();
   } catch ( const CreateError& e ) {
      giveGrowthUp();
      throw NoSpaceError( e.what() );
   }
}

// Readers find the next instance under the table's name. A reader that has mapped
// this one sees by its mark that it is not the table any more.
void WriterTable::finishGrowth() {
   const WriterView before = view_;
   std::shared_ptr<Mapping> mapping = mapping_;
   TableMaker::finishGrowth( *this, *growth_ );
   growth_.reset();
   storeWord( before.retired(), retiredWord );
   if ( !reserved_.empty() ) former_.push_back( mapping );
   std::fill( reserved_.begin(), reserved_.end(), noSlot );
   releaseAside( std::move( mapping ) );
}

// The kernel takes a quarter of a second to free a gigabyte.
void WriterTable::releaseAside( std::shared_ptr<Mapping> mapping ) {
   constexpr uint64_t large = 16 << 20;  // bytes
   if ( mapping->size() < large ) return;
   sigset_t all, before;
   sigfillset( &all );
   pthread_sigmask( SIG_SETMASK, &all, &before );  // none is for this thread
   try {
      release_ = std::jthread( [moved = std::move( mapping )] {} );
   } catch ( const std::exception& ) {
      mapping.reset();  // here, then
   }
   pthread_sigmask( SIG_SETMASK, &before, nullptr );
}

// Linux allows a process some 65,000 mappings, and most tables of many VRFs are empty:
// such a table waits for its first record with its file alone.
void WriterTable::rest() {
   if ( size_ != 0 || view_.geometry.slotsOffset > sizeof( zeroes ) ) return;
   mapping_.reset();
   free_ = FreeSlots();
   view_.base = const_cast<std::byte*>( zeroes );
}

// The first record has come. When the system refuses, the table is as it was.
void WriterTable::map() {
   try {
      if ( filesRemoved_ ) throw CreateError( path() + ": the table is removed" );
      if ( TableMaker::map( *this ) ) return;
      seat_->restore();
      TableMaker::renew( *this );
   } catch ( const TableError& e ) {
      throw NoSpaceError( e.what() );
   }
}

PIMSM_SHM_HOT Position WriterTable::putHashed( const void* record, uint64_t hash,
                                               Position hint ) {
   if ( __builtin_expect( size_ >= growAt_, 0 ) ) makeRoom( record, hash, hint );
   // A copy: to the compiler any store to the table might change the member.
   const WriterView view = view_;
   prefetchForStore( view.slotBytes( free_.peek( freeAhead ) ), view.slotSize() );
   uint32_t slot = free_.pop();
   const RecordIdentity identity{ sequence_ + 1, slot, hash };
   claimSlot( view, slot, identity.sequence );
   fillSlot( view, record, identity );
   Place place;
   try {
      place = placeFor( record, hash, hint );
   } catch ( ... ) {
      release( slot );
      throw;
   }
   finish( view, place, record, identity );
   return place.position;
}

Position WriterTable::put( const void* record, Position hint ) {
   if ( !mapping_ ) map();
   // The record is written while the index line and former slot are being fetched.
   uint64_t hash = hashAhead( record, hint );
   fetchSlot( hash, hint );
   return putHashed( record, hash, hint );
}

void WriterTable::put( std::span<TableWriter::PutItem> items ) {
   if ( !mapping_ && !items.empty() ) map();
   constexpr size_t kept = 4 * fetchGroup;
   uint64_t hashes[kept];
   size_t lines = 0, slots = 0;
   for ( size_t i = 0; i < items.size(); ++i ) {
      if ( i % fetchGroup == 0 ) {
         for ( ; lines < std::min( items.size(), i + 3 * fetchGroup ); ++lines ) {
            hashes[lines % kept] =
               hashAhead( items[lines].record, items[lines].position );
         }
         for ( ; slots < std::min( items.size(), i + 2 * fetchGroup ); ++slots ) {
            fetchSlot( hashes[slots % kept], items[slots].position );
         }
      }
      items[i].position =
         putHashed( items[i].record, hashes[i % kept], items[i].position );
   }
}

uint32_t WriterTable::reserve() {
   MOX_ASSERT( reserved_.size() < maxReservations );
   if ( !mapping_ ) map();
   // One free slot stays for puts.
   if ( reserved_.size() + 2 > view_.geometry.spareSlots ) grow();
   uint32_t slot = free_.pop();
   reserved_.push_back( slot );
   claimSlot( view_, slot, sequence_ + 1 );
   return slot;
}

Position WriterTable::commit( uint32_t slot, const void* record, Position hint ) {
   uint64_t hash = hashOf( record );
   if ( size_ >= growAt_ ) makeRoom( record, hash, hint );
   if ( record != view_.record( slot ) ) {
      // Reserved in a former instance.
      Position position = putHashed( record, hash, hint );
      abandon( slot, record );
      return position;
   }
   Place place = placeFor( record, hash, hint );
   RecordIdentity identity{ sequence_ + 1, slot, hash };
   storeWord( &view_.slot( slot )->checksum,
              recordChecksum( record, view_.geometry.recordSize, identity ) );
   finish( view_, place, record, identity );
   unreserve( slot );
   return place.position;
}

void WriterTable::abandon( uint32_t slot, const void* record ) {
   const bool present = record == view_.record( slot );
   if ( present ) release( slot );
   unreserve( present ? slot : noSlot );
}

void WriterTable::unreserve( uint32_t slot ) {
   const auto found = std::find( reserved_.begin(), reserved_.end(), slot );
   MOX_ASSERT( found != reserved_.end() );
   reserved_.erase( found );
   if ( reserved_.empty() ) former_.clear();
}

bool WriterTable::remove( const void* key, void* removed, Position hint ) {
   uint64_t hash = hashOf( key );
   Place place = locate( key, hash, hint );
   if ( !place.word ) return false;
   uint32_t slot = slotOf( place.word );
   if ( removed )
      std::memcpy( removed, view_.record( slot ), view_.geometry.recordSize );
   retract( view_, place, hash, ++sequence_ );
   free_.push( slot );
   --size_;
   if ( growth_ ) {
      growth_->release( slot );
      repeat( [&] { growth_->remove( key, hash ); } );
   }
   if ( growth_ && size_ < growAt_ / 2 ) {  // room enough again
      giveGrowthUp();
      decideWhenToGrow();
   }
   return true;
}

const void* WriterTable::find( const void* key, Position hint ) const {
   Place place = locate( key, hashOf( key ), hint );
   return place.word ? view_.record( slotOf( place.word ) ) : nullptr;
}

const void* WriterTable::at( Position position ) const {
   if ( position >= view_.geometry.positions() || !isWord( position ) )
      return nullptr;
   uint64_t word = view_.index()[position];
   return word ? view_.record( checkedSlot( position, word ) ) : nullptr;
}

Position WriterTable::next( Position after ) const {
   // noPosition + 1 is 0.
   for ( Position p = after + 1; p < view_.geometry.positions(); ++p ) {
      if ( isWord( p ) && view_.index()[p] ) return p;
   }
   return noPosition;
}

Position WriterTable::positionAtOrBefore( const void* key ) const {
   uint64_t hash = hashOf( key );
   // A key never stands before its home line, so no later record is skipped.
   const Position home = view_.geometry.homeOf( hash ) * lineWords;
   try {
      Place place = locate( key, hash, noPosition );
      return place.word ? place.position : home;
   } catch ( const CorruptionError& ) {
      return home;
   }
}

void WriterTable::ring() {
   if ( rung_ != sequence_ && seat_->ring() ) rung_ = sequence_;
}

bool WriterTable::filesStand() const {
   if ( filesRemoved_ ) return true;
   return seat_->stands() && leadsTo( files_.table, file_ );
}

// The table last: whoever sees it can watch its bell.
void WriterTable::restoreFiles() {
   MOX_ASSERT( reserved_.empty() );
   if ( filesStand() ) return;
   giveGrowthUp();
   seat_->restore();
   if ( leadsTo( files_.table, file_ ) ) return;
   if ( mapping_ ) return copyToNewFile();
   TableMaker::renew( *this );
   rest();
}

// Byte by byte: sequences and positions stay, so that followers find only untold
// changes.
void WriterTable::copyToNewFile() {
   const uint64_t size = mapping_->size();
   Descriptor file = createFile( files_.fresh(), size );
   Mapping mapping = Mapping::ofFile( file.get(), size, true, files_.fresh() );
   std::memcpy( mapping.data(), mapping_->data(), size );
   const FileId made = fileIdOf( file, files_.fresh() );
   if ( rename( files_.fresh().c_str(), files_.table.c_str() ) != 0 )
      systemFailed( files_.table, "cannot rename the table's copy" );
   file_ = made;
   mapping_ = std::make_shared<Mapping>( std::move( mapping ) );
   view_.base = mapping_->data();
}

// Where the system refuses, readers miss no record of an empty table.
void WriterTable::markRetired() {
   try {
      if ( mapping_ || TableMaker::map( *this ) )
         storeWord( view_.retired(), retiredWord );
   } catch ( const CreateError& ) {
      return;
   }
}

void WriterTable::removeFiles() {
   // The names may lead to a successor's files by now.
   if ( std::exchange( filesRemoved_, true ) ) return;
   giveGrowthUp();
   markRetired();
   unlink( files_.table.c_str() );
   rung_ = sequence_ - 1;
   ring();
   if ( !sharesSeat() ) seat_->removeFiles();
}

Sweep WriterTable::verify() const {
   if ( !mapping_ ) return {};
   Survey survey( view_, path() );
   Sweep sweep;
   sweep.texts = survey.texts();
   sweep.damaged = uint32_t( survey.broken().size() + survey.older().size() );
   for ( Position p = 0; p < view_.geometry.positions(); ++p ) {
      bool agrees = survey.index()[p] == view_.index()[p];
      if ( agrees && isWord( p ) && survey.index()[p] ) ++sweep.verified;
      if ( agrees ) continue;
      ++sweep.damaged;
      addText( sweep.texts,
               fmt::format( "{}: position {} is {:#x}, should be {:#x}", path(), p,
                            view_.index()[p], survey.index()[p] ) );
   }
   return sweep;
}

}
