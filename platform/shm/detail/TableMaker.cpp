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
      if ( field.offset < to.keySize ) continue;
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
   table_.free_ = FreeSlots( table_.view_.geometry.slotCount );
   if ( *table_.view_.retired() ) storeWord( table_.view_.retired(), 0 );
   putRight( table_.view_, survey, table_.report_ );
   table_.sequence_ = *table_.view_.head();
   table_.size_ = survey.survivors();
   for ( uint32_t slot = 0; slot < table_.view_.geometry.slotCount; ++slot ) {
      if ( !survey.names( slot ) ) table_.free_.push( slot );
   }
}

HeaderValues TableMaker::freshValues( uint32_t records ) const {
   HeaderValues values;
   values.limit = limit_;
   const uint32_t first = options_.firstCapacity
                             ? options_.firstCapacity
                             : Geometry::firstCapacity( table_.layout() );
   values.capacity = std::max( std::min( first, limit_ ), records );
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

// The new instance is complete before it gets its name. After a kill before that,
// the former one stands untouched.
void TableMaker::create( const Former* former, const Survey* survey ) {
   const HeaderValues values = freshValues( survey ? survey->survivors() : 0 );
   adopt( table_, make( table_, values, options_.firstSequence ), 0 );
   if ( former ) copySurvivors( *former, *survey );
   name( table_, table_.view_ );
}

void TableMaker::grow( WriterTable& table ) {
   const WriterView& view = table.view_;
   const Geometry& now = view.geometry;
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
   try {
      Made made = make( table, values, table.sequence_ );
      const uint32_t copied = copyRecords( view, made.view );
      name( table, made.view );
      adopt( table, std::move( made ), copied );
   } catch ( const CreateError& ) {
      unlink( table.files_.fresh().c_str() );
      throw;
   }
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
   fillFree( table, 0 );
   return true;
}

void TableMaker::renew( WriterTable& table ) {
   Made made = make( table, valuesOf( table ), table.sequence_ );
   name( table, made.view );
   adopt( table, std::move( made ), 0 );
}

// A new, empty instance, which has no name yet.
TableMaker::Made TableMaker::make( const WriterTable& table,
                                   const HeaderValues& values, uint64_t sequence ) {
   const Layout& layout = table.layout();
   const Geometry geometry = Geometry::of( layout.keySize, layout.recordSize,
                                           uint32_t( layout.fields.size() ),
                                           values.capacity, values.journalEntries );
   const Mox::String path = table.files_.fresh();
   Descriptor file = createFile( path, geometry.fileSize );
   Made made;
   made.file = fileIdOf( file, path );
   made.mapping = std::make_shared<Mapping>(
      Mapping::ofFile( file.get(), geometry.fileSize, true, path ) );
   made.view = {
      made.mapping->data(), geometry, { values.seed[0], values.seed[1] } };
   made.instanceId = values.instanceId;
   writeHeader( made.view.base, layout, values );
   storeWord( made.view.journal( sequence ), journalEntry( 0, sequence ) );
   storeWord( made.view.head(), sequence );
   return made;
}

void TableMaker::name( const WriterTable& table, const WriterView& view ) {
   markReady( view.base );
   if ( rename( table.files_.fresh().c_str(), table.files_.table.c_str() ) != 0 )
      systemFailed( table.files_.table, "cannot rename the new instance" );
}

// Copies all records to the first slots of an empty instance with the same seed, and
// returns their number. In order of positions: twice as many homes keep the order, so
// both sides are walked once.
uint32_t TableMaker::copyRecords( const ConstView& from, const WriterView& to ) {
   constexpr Position ahead = 32;
   const Position end = from.geometry.positions();
   uint32_t slot = 0;
   for ( Position p = 0; p < end; ++p ) {
      // Slots are in no order, so that each would be waited for.
      const uint32_t soon = p + ahead < end && isWord( p + ahead )
                               ? slotOf( from.index()[p + ahead] )
                               : 0;
      if ( soon < from.geometry.slotCount )
         prefetch( from.slotBytes( soon ), from.slotSize() );
      const uint64_t word = isWord( p ) ? from.index()[p] : 0;
      if ( !word ) continue;
      const std::byte* record = from.record( slotOf( word ) );
      const uint64_t hash = keyHash( record, from.geometry.keySize, from.seed );
      const Place place = freePlace( to, hash );
      const RecordIdentity identity{
         sequenceOf( from.slot( slotOf( word ) )->stamp ), slot++, hash };
      fillSlot( to, record, identity );
      enter( to, place, identity );
   }
   return slot;
}

Place TableMaker::freePlace( const ConstView& view, uint64_t hash ) {
   const uint32_t home = view.geometry.homeOf( hash );
   for ( uint32_t line = home; line < home + view.geometry.reach; ++line ) {
      uint32_t empty = wordsWith( view.index() + line * lineWords, 0 );
      if ( empty ) return { line * lineWords + takeFirst( empty ), 0 };
   }
   throw CreateError( "a larger instance has no place for a key" );
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

void TableMaker::adopt( WriterTable& table, Made made, uint32_t records ) {
   table.file_ = made.file;
   table.mapping_ = std::move( made.mapping );
   table.view_ = made.view;
   table.instanceId_ = made.instanceId;
   table.sequence_ = *made.view.head();
   fillFree( table, records );
}

// The first slots hold records.
void TableMaker::fillFree( WriterTable& table, uint32_t records ) {
   const uint32_t slots = table.view_.geometry.slotCount;
   table.free_ = FreeSlots( slots );
   for ( uint32_t slot = records; slot < slots; ++slot ) table.free_.push( slot );
}

}
