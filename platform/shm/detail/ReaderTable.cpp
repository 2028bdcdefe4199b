#include "platform/shm/detail/ReaderTable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/shm/detail/Survey.h"

namespace Brane::Detail {

namespace {

constexpr size_t lookupLines = 16;
constexpr size_t lookupSlots = 8;

constexpr Position visitAhead = 32;

bool nothingThere( int error ) {
   return error == ENOENT || error == ENOTDIR;
}

}

ReaderTable::ReaderTable( TableFiles files, std::shared_ptr<const Layout> layout )
   : files_( std::move( files ) ), layout_( std::move( layout ) ) {
   layout_->check();
   buffer_.resize( layout_->recordSize );
   poll();
}

// Removed files say nothing of the records in them. The reader keeps the last
// records until there is a table again, or the writer retires it.
bool ReaderTable::handleMissing() {
   const auto last = instance_ ? instance_ : former_;
   if ( last && loadWord( last->view().retired() ) != retiredWord ) {
      instance_ = last;
      state_ = readerAttached;
      problem_ = files_.table +
                 ": the file is gone, though its writer has not retired the table; "
                 "its last records are kept";
      return !std::exchange( orphaned_, true );
   }
   bool changed = state_ != readerAbsent;
   state_ = readerAbsent;
   orphaned_ = false;
   instance_.reset();
   former_.reset();
   judged_ = false;
   unreadable_ = Descriptor();
   problem_.clear();
   return changed;
}

// A table that has grown is followed at once: a look-up sees each put. When the
// system refuses, the next drain says so.
void ReaderTable::followGrowth() {
   try {
      changed_ = look() || changed_;
   } catch ( const CreateError& ) {
      changed_ = true;
   }
}

bool ReaderTable::poll() {
   const bool changed = std::exchange( changed_, false );
   return look() || changed;
}

// Does the name still lead to the judged file?
bool ReaderTable::judgedStands() const {
   struct stat status;
   if ( stat( files_.table.c_str(), &status ) == 0 )
      return FileId{ status.st_dev, status.st_ino } == fileId_;
   if ( nothingThere( errno ) ) return false;
   systemFailed( files_.table, "cannot look at the file" );
}

bool ReaderTable::look() {
   if ( judged_ && !orphaned_ && judgedStands() ) return false;
   Descriptor file( openFile( files_.table, O_RDONLY | O_NONBLOCK ) );
   if ( !file && nothingThere( errno ) ) return handleMissing();
   if ( !file ) systemFailed( files_.table, "cannot open" );
   attach( std::move( file ) );
   return true;
}

// When the system refuses, nothing is attached and the next poll tries again.
void ReaderTable::attach( Descriptor file ) {
   judged_ = false;
   unreadable_ = Descriptor();
   orphaned_ = false;
   if ( instance_ ) former_ = std::exchange( instance_, nullptr );
   damaged_.clear();
   problem_.clear();
   try {
      adopt( file );
   } catch ( const std::exception& e ) {
      state_ = readerDamaged;
      problem_ = e.what();
      throw;
   }
}

// Takes the file over once it has been judged.
void ReaderTable::adopt( Descriptor& file ) {
   struct stat status;
   if ( fstat( file.get(), &status ) != 0 ) {
      systemFailed( files_.table, "cannot look at the file" );
   }
   try {
      if ( !S_ISREG( status.st_mode ) ) {
         throw LayoutError( LayoutError::magic, files_.table + ": not a file" );
      }
      instance_ = std::make_shared<const Instance>(
         file.get(), uint64_t( status.st_size ), *layout_, files_.table );
      former_.reset();
      state_ = readerAttached;
   } catch ( const LayoutError& e ) {
      state_ = e.otherRecord() ? readerMismatch : readerDamaged;
      mismatch_ = e.mismatch();
      problem_ = e.what();
      unreadable_ = std::move( file );
   }
   fileId_ = { status.st_dev, status.st_ino };
   judged_ = true;
}

void ReaderTable::countFailed( const Instance::Copy& copy, Position position ) {
   if ( copy.result == lookupBusy ) ++counters_.busy;
   if ( copy.result == lookupDamaged )
      damaged( copy, position, "index and slot contradict each other" );
}

Lookup ReaderTable::damaged( const Instance::Copy& copy, Position position,
                             const char* what ) {
   if ( std::exchange( damaged_[position], copy.word ) != copy.word )
      ++counters_.damaged;
   problem_ =
      placeText( files_.table, position, slotOf( copy.word ) ) + ": " + what;
   return lookupDamaged;
}

bool ReaderTable::isPosition( Position position ) const {
   return instance_ && position < instance_->geometry().positions() &&
          isWord( position );
}

// The answer without an instance: absent without a table; an unreadable table may
// hold any key.
Lookup ReaderTable::withoutInstance() const {
   return state_ == readerAbsent ? lookupAbsent : lookupDamaged;
}

Lookup ReaderTable::lookup( const void* key, void* out, Position* position ) {
   if ( outgrown() ) followGrowth();
   if ( !instance_ ) return withoutInstance();
   Position at = noPosition;
   auto copy = instance_->lookup( key, instance_->hashOf( key ), out, &at );
   Lookup result = count( *instance_, copy, at, out );
   if ( position && result == lookupFound ) *position = at;
   return result;
}

void ReaderTable::lookup( std::span<TableReader::LookupItem> items ) {
   if ( outgrown() ) followGrowth();
   for ( auto& item : items ) item.result = withoutInstance();
   if ( !instance_ ) return;
   uint64_t hashes[lookupLines];
   size_t lines = 0, slots = 0;
   for ( size_t i = 0; i < items.size(); ++i ) {
      for ( ; lines < items.size() && lines < i + lookupLines; ++lines ) {
         hashes[lines % lookupLines] = instance_->hashOf( items[lines].key );
         instance_->fetchLine( hashes[lines % lookupLines] );
      }
      for ( ; slots < items.size() && slots < i + lookupSlots; ++slots ) {
         instance_->fetchSlots( hashes[slots % lookupLines] );
      }
      Position at = noPosition;
      auto copy = instance_->lookup( items[i].key, hashes[i % lookupLines],
                                     items[i].out, &at );
      items[i].result = count( *instance_, copy, at, items[i].out );
   }
}

Lookup ReaderTable::at( Position position, void* out ) {
   if ( !isPosition( position ) ) return lookupAbsent;
   return count( *instance_, instance_->copy( position, out ), position, out );
}

// A position cleared meanwhile is skipped in its turn.
Position ReaderTable::visit( const TableReader::Visitor& visitor, Position after ) {
   // Positions are one instance's: a visit that goes on does so there.
   if ( after == noPosition && outgrown() ) followGrowth();
   // The visitor may poll: this instance is visited to its end.
   const std::shared_ptr<const Instance> instance = instance_;
   if ( !instance ) return noPosition;
   std::vector<std::byte> record( layout_->recordSize );
   const Position end = instance->geometry().positions();
   for ( Position p = after + 1, fetched = p; p < end; ++p ) {
      for ( ; fetched < end && fetched < p + visitAhead; ++fetched )
         if ( isWord( fetched ) )
            instance->fetchSlot( instance->wordAt( fetched ) );
      if ( !isWord( p ) || !instance->wordAt( p ) ) continue;
      auto copy = instance->copy( p, record.data() );
      Lookup result = count( *instance, copy, p, record.data() );
      if ( result == lookupFound && !visitor( p, record.data() ) ) return p;
   }
   return noPosition;
}

Position ReaderTable::resumeBefore( const void* key ) {
   if ( outgrown() ) followGrowth();
   if ( !instance_ ) return noPosition;
   uint64_t hash = instance_->hashOf( key );
   Position at = instance_->geometry().homeOf( hash ) * lineWords;
   Position found = noPosition;
   if ( instance_->lookup( key, hash, buffer_.data(), &found ).result ==
        lookupFound ) {
      at = found;
   }
   // Position 0 gives noPosition: from the start.
   return at - 1;
}

Lookup ReaderTable::verify( const void* key ) {
   if ( outgrown() ) followGrowth();
   if ( !instance_ ) return lookupAbsent;
   Position at = noPosition;
   auto copy =
      instance_->lookup( key, instance_->hashOf( key ), buffer_.data(), &at );
   if ( copy.result == lookupFound &&
        !instance_->verify( at, copy, buffer_.data() ) )
      return damaged( copy, at, kUnverified );
   return count( *instance_, copy, at, buffer_.data() );
}

}
