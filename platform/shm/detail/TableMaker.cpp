#include "platform/shm/detail/TableMaker.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/shm/detail/Hash.h"
#include "platform/shm/detail/Line.h"
#include "platform/shm/detail/Remount.h"

namespace Brane::Detail {

namespace {

void checkOptions( const WriterOptions& options, uint32_t capacity ) {
   if ( capacity > Geometry::maxCapacity() ) {
      throw Mox::RangeError( fmt::format( "capacity {} is above {}", capacity,
                                          Geometry::maxCapacity() ) );
   }
   uint32_t entries = options.journalEntries;
   if ( entries &&
        ( !std::has_single_bit( entries ) || entries < 4 || entries > 1u << 24 ) ) {
      throw Mox::RangeError( fmt::format( "{} journal entries", entries ) );
   }
   if ( options.bootId.size() > 39 ) throw Mox::RangeError( "boot id too long" );
}

// Copies bytes of a former record to their place in a new one.
struct Move {
   uint32_t from, to, size;
};

std::vector<Move> movesBetween( const Layout& from, const Layout& to ) {
   std::vector<Move> moves{ { 0, 0, to.keySize } };
   for ( const Field& field : to.fields ) {
      for ( const Field& old : from.fields ) {
         bool same = old.name == field.name && old.type == field.type &&
                     old.size == field.size;
         if ( same ) moves.push_back( { old.offset, field.offset, field.size } );
      }
   }
   return moves;
}

}

void TableMaker::open( WriterTable& table, uint32_t capacity,
                       const WriterOptions& options ) {
   TableMaker( table, capacity, options ).run();
}

TableMaker::TableMaker( WriterTable& table, uint32_t capacity,
                        const WriterOptions& options )
   : table_( table ), limit_( capacity ), options_( options ) {
   checkOptions( options, capacity );
   if ( options_.bootId.empty() ) options_.bootId = runningBootId();
}

void TableMaker::run() {
   table_.limit_ = limit_;
   Former former;
   if ( !readFormer( former ) ) return create( nullptr, nullptr );
   AttachReport& report = table_.report_;
   if ( bootIdOf( former.header ) != options_.bootId ) {
      report.status = attachOtherBoot;
      addText( report.texts,
               fmt::format( "{}: from boot {}, running is {}", table_.path(),
                            bootIdOf( former.header ), options_.bootId ) );
      return create( nullptr, nullptr );
   }
   Survey survey( former.view, table_.path() );
   for ( const Mox::String& text : survey.texts() ) addText( report.texts, text );
   report.dropped = uint32_t( survey.broken().size() );
   limit_ = std::max( limit_, survey.survivors() );
   table_.limit_ = limit_;
   report.status = judge( former, survey );
   if ( report.status == attachOtherKey ) return create( nullptr, nullptr );
   report.survivors = survey.survivors();
   if ( report.status == attachReused )
      return takeOver( std::move( former ), survey );
   create( &former, &survey );
}

// Returns false when there is none; the report says why, if that is worth a line.
bool TableMaker::readFormer( Former& former ) {
   const Mox::String& path = table_.path();
   former.file = Descriptor( openFile( path, O_RDWR | O_NONBLOCK ) );
   if ( !former.file && errno == ENOENT ) return false;
   if ( !former.file && errno != EISDIR ) systemFailed( path, "cannot open" );
   struct stat status;
   if ( !former.file || fstat( former.file.get(), &status ) != 0 ||
        !S_ISREG( status.st_mode ) ) {
      throw CreateError( path + ": not a file: remove it" );
   }
   std::byte bytes[sizeof( FileHeader )];
   ssize_t got = pread( former.file.get(), bytes, sizeof( bytes ), 0 );
   if ( got < 0 ) systemFailed( path, "cannot read" );
   try {
      former.header = readHeader( bytes, uint64_t( got ),
                                  uint64_t( status.st_size ), path, true );
   } catch ( const LayoutError& e ) {
      table_.report_.status = attachDamaged;
      addText( table_.report_.texts, e.what() );
      return false;
   }
   const FileHeader& h = former.header;
   former.mapping = Mapping::ofFile( former.file.get(), h.fileSize, true, path );
   former.view = {
      former.mapping.data(), geometryOf( h ), { h.seed[0], h.seed[1] } };
   return true;
}

AttachStatus TableMaker::judge( const Former& former, const Survey& survey ) {
   Layout found = layoutOf( former.header );
   std::vector<Mox::String>& texts = table_.report_.texts;
   // Readers go by the fingerprint, copying goes by the field directory.
   bool same = found == table_.layout() &&
               former.header.fingerprint == table_.layout().fingerprint();
   if ( !same ) {
      addText(
         texts,
         fmt::format( "{}: layout {:#x} with records of {} bytes, this "
                      "program's is {:#x} with {}",
                      table_.path(), former.header.fingerprint, found.recordSize,
                      table_.layout().fingerprint(), table_.layout().recordSize ) );
      return found.sameKey( table_.layout() ) ? attachConverted : attachOtherKey;
   }
   if ( former.header.version != formatVersion ) {
      addText( texts,
               fmt::format( "{}: format version {} becomes {}, {} records stand",
                            table_.path(), former.header.version, formatVersion,
                            survey.survivors() ) );
      return attachResized;
   }
   if ( former.header.limit == limit_ ) return attachReused;
   addText( texts, fmt::format( "{}: capacity {} becomes {}, {} records stand",
                                table_.path(), former.header.limit, limit_,
                                survey.survivors() ) );
   return attachResized;
}

void TableMaker::takeOver( Former former, const Survey& survey ) {
   const FileHeader& h = former.header;
   table_.file_ = fileIdOf( former.file, table_.path() );
   table_.mapping_ = std::make_shared<Mapping>( std::move( former.mapping ) );
   table_.view_ = {
      table_.mapping_->data(), geometryOf( h ), { h.seed[0], h.seed[1] } };
   table_.instanceId_ = h.instanceId;
   const uint32_t slots = table_.view_.geometry.slotCount;
   table_.free_ = FreeSlots( slots, slots );
   if ( *table_.view_.retired() ) storeWord( table_.view_.retired(), 0 );
   // A writer that died while its table grew may have left one.
   unlink( table_.files_.fresh().c_str() );
   putRight( table_.view_, survey, table_.report_ );
   table_.sequence_ = *table_.view_.head();
   table_.size_ = survey.survivors();
   for ( uint32_t slot = 0; slot < slots; ++slot ) {
      if ( !survey.names( slot ) ) table_.free_.push( slot );
   }
   table_.decideWhenToGrow();
}

HeaderValues TableMaker::freshValues( uint32_t records ) const {
   HeaderValues values;
   values.limit = limit_;
   const uint32_t first = options_.firstCapacity
                             ? options_.firstCapacity
                             : Geometry::firstCapacity( table_.layout() );
   // With room for more: else the first new key would make it grow at once.
   values.capacity = std::max( std::min( first, limit_ ),
                               std::min( records + records / 4, limit_ ) );
   values.journalEntries = options_.journalEntries
                              ? options_.journalEntries
                              : Geometry::defaultJournalEntries( values.capacity );
   values.instanceId = randomWord();
   for ( size_t i = 0; i < 2; ++i ) {
      values.seed[i] = options_.seed ? ( *options_.seed )[i] : randomWord();
   }
   values.bootId = options_.bootId;
   return values;
}

HeaderValues TableMaker::valuesOf( const WriterTable& table ) {
   HeaderValues values;
   values.capacity = table.view_.geometry.capacity;
   values.limit = table.limit_;
   values.journalEntries = table.view_.geometry.journalEntries;
   values.instanceId = table.instanceId_;
   std::copy( table.view_.seed, table.view_.seed + 2, values.seed );
   values.bootId = runningBootId();
   if ( table.mapping_ )
      values.bootId =
         bootIdOf( *reinterpret_cast<const FileHeader*>( table.view_.base ) );
   return values;
}

void TableMaker::create( const Former* former, const Survey* survey ) {
   const HeaderValues values = freshValues( survey ? survey->survivors() : 0 );
   NewInstance made( table_.files_.fresh(), table_.layout(), values );
   made.allocate();
   made.startAfter( options_.firstSequence );
   adopt( table_, made );
   table_.growAt_ = values.capacity;  // not before it has its name
   if ( former ) copySurvivors( *former, *survey );
   made.nameIs( table_.path() );
   table_.decideWhenToGrow();
}

std::unique_ptr<Growth> TableMaker::beginGrowth( const WriterTable& table ) {
   if ( table.filesRemoved_ )
      throw CreateError( table.path() + ": the table is removed" );
   const Geometry& now = table.view_.geometry;
   HeaderValues values = valuesOf( table );
   values.capacity = std::min( 2 * now.capacity, Geometry::maxCapacity() );
   // Beyond the limit, room is only wanted for reservations.
   if ( now.capacity < table.limit_ )
      values.capacity = std::min( values.capacity, table.limit_ );
   values.journalEntries = std::max(
      now.journalEntries,
      now.journalEntries == Geometry::defaultJournalEntries( now.capacity )
         ? Geometry::defaultJournalEntries( values.capacity )
         : 0 );
   values.instanceId = randomWord();
   return std::make_unique<Growth>( table.view_, table.liveSlots(), table.layout(),
                                    values, table.files_.fresh() );
}

void TableMaker::finishGrowth( WriterTable& table, Growth& growth ) {
   NewInstance& made = growth.finish( table.sequence_ );
   made.nameIs( table.path() );
   adopt( table, made, growth.firstFree() );
   for ( uint32_t slot : growth.freed() ) table.free_.push( slot );
}

// Nothing kept the file, so that another one may have its number.
bool TableMaker::map( WriterTable& table ) {
   const Mox::String& path = table.path();
   Descriptor file( openFile( path, O_RDWR | O_NONBLOCK ) );
   if ( !file && errno == ENOENT ) return false;
   if ( !file ) systemFailed( path, "cannot open" );
   if ( fileIdOf( file, path ) != table.file_ ) return false;
   const uint64_t size = table.view_.geometry.fileSize;
   auto mapping =
      std::make_shared<Mapping>( Mapping::ofFile( file.get(), size, true, path ) );
   const auto* header = reinterpret_cast<const FileHeader*>( mapping->data() );
   if ( header->instanceId != table.instanceId_ ) return false;
   table.view_.base = mapping->data();
   table.mapping_ = std::move( mapping );
   table.free_ = FreeSlots( table.view_.geometry.slotCount, 0 );
   return true;
}

void TableMaker::renew( WriterTable& table ) {
   const HeaderValues values = valuesOf( table );
   NewInstance made( table.files_.fresh(), table.layout(), values );
   made.allocate();
   made.startAfter( table.sequence_ );
   made.nameIs( table.path() );
   adopt( table, made );
}

void TableMaker::copySurvivors( const Former& former, const Survey& survey ) {
   std::vector<Move> moves =
      movesBetween( layoutOf( former.header ), table_.layout() );
   std::vector<std::byte> record = options_.fresh;
   record.resize( table_.layout().recordSize );
   for ( Position p = 0; p < survey.index().size(); ++p ) {
      uint64_t word = survey.index()[p];
      if ( !isWord( p ) || !word ) continue;
      const std::byte* old = former.view.record( slotOf( word ) );
      for ( const Move& move : moves ) {
         std::memcpy( record.data() + move.to, old + move.from, move.size );
      }
      try {
         table_.put( record.data(), noPosition );
      } catch ( const ProbeLimitError& e ) {
         drop( e );
      } catch ( const Mox::RangeError& e ) {  // the zero key, accepted before
         drop( e );
      }
   }
}

void TableMaker::drop( const Mox::Error& why ) {
   addText( table_.report_.texts, why.what() );
   ++table_.report_.dropped;
   --table_.report_.survivors;
}

// The first `usedSlots` have been used, by records or by such as went again.
void TableMaker::adopt( WriterTable& table, const NewInstance& made,
                        uint32_t usedSlots ) {
   table.file_ = made.file();
   table.mapping_ = made.mapping();
   table.view_ = made.view();
   table.instanceId_ = made.instanceId();
   table.sequence_ = *made.view().head();
   table.free_ = FreeSlots( made.view().geometry.slotCount, usedSlots );
   table.decideWhenToGrow();
}

}
