// A record of every kind of field, and an entity with a table of it.
#pragma once

#include <set>
#include <vector>

#include "platform/base/Record.h"
#include "platform/loop/TestClock.h"
#include "platform/mount/EntityManager.h"
#include "platform/mount/TableAttribute.h"

namespace MoxBrane::Test {

// clang-format off
#define TEST_COLOURS( V ) V( red ) V( green ) V( blue )
#define TEST_MARKS( FLAG ) FLAG( bent, 'B' ) FLAG( torn, 'T' )

#define TEST_BOOK_KEY( FIELD ) \
   FIELD( Vantu::IpGenAddr, address, {} ) \
   FIELD( uint32_t,         number,  0 )

#define TEST_BOOK( FIELD ) \
   FIELD( MoxBrane::Test::BookKey, key,    {} ) \
   FIELD( MoxBrane::Test::Colour,  colour, {} ) \
   FIELD( MoxBrane::Test::Marks,   marks,  {} ) \
   FIELD( Vantu::IntfId,           place,  {} ) \
   FIELD( bool,                    lent,   false ) \
   FIELD( double,                  weight, 0 )
// clang-format on

MOX_ENUM( Colour, TEST_COLOURS )
MOX_ENUM_TEXT( Colour, TEST_COLOURS )
MOX_FLAGS( Marks, "MoxBrane::Test::", TEST_MARKS )

struct BookKey {
   TEST_BOOK_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const BookKey& ) const = default;
};
MOX_RECORD_TEXT( BookKey, "MoxBrane::Test::BookKey", TEST_BOOK_KEY )
MOX_STREAM_TEXT( BookKey )

struct Book {
   TEST_BOOK( MOX_RECORD_FIELD )
   bool operator==( const Book& ) const = default;
};

}

namespace Brane {

BRANE_FLAT_RECORD( MoxBrane::Test::BookKey, "BookKey", TEST_BOOK_KEY )
BRANE_FLAT_RECORD( MoxBrane::Test::Book, "Book", TEST_BOOK )

}

namespace MoxBrane::Test {

using BookTable = Table<Book>;

// clang-format off
#define TEST_SHELF_ATTRIBUTES( A ) A( Table, book, Book, BookTable, , "by BookKey" )
// clang-format on

class Shelf : public MountedEntity {
 public:
   MOX_ENTITY( Shelf, TEST_SHELF_ATTRIBUTES )
   explicit Shelf( Mox::StringView name ) : MountedEntity( name ) {}

 protected:
   ~Shelf() override = default;
};

// Another type for the same path.
class Drawer : public MountedEntity {
 public:
   MOX_ENTITY( Drawer, TEST_SHELF_ATTRIBUTES )
   explicit Drawer( Mox::StringView name ) : MountedEntity( name ) {}

 protected:
   ~Drawer() override = default;
};

inline BookKey bookKey( uint32_t number ) {
   return { Vantu::IpGenAddr( "192.0.2.1" ), number };
}
inline Book bookOf( uint32_t number, double weight = 1 ) {
   Book book;
   book.key = bookKey( number );
   book.weight = weight;
   return book;
}

using BookBytes = ::Brane::FlatForm<Book>::Bytes;
inline BookBytes flatBytesOf( const Book& book ) {
   BookBytes bytes;
   std::memset( &bytes, 0, sizeof bytes );
   ::Brane::FlatForm<Book>::write( book, bytes );
   return bytes;
}

// Notes the numbers of the notified keys; `mounts` counts table changes.
class ShelfRecorder : public Shelf::NotifieeConst {
 public:
   explicit ShelfRecorder( const Shelf* shelf ) { notifierIs( shelf ); }
   using NotifieeConst::onBook;
   void onBook( const BookKey& key ) override {
      heard_.push_back( key.number );
      if ( inside ) inside( key );
   }
   void onBook() override { ++mounts; }
   void onBookSoon( const BookKey& key ) override { soon.insert( key.number ); }
   std::vector<uint32_t> take() { return std::exchange( heard_, {} ); }

   std::function<void( const BookKey& )> inside;
   unsigned mounts = 0;
   std::set<uint32_t> soon;

 private:
   std::vector<uint32_t> heard_;
};

// One process with a shelf: its manager, mounted in a role, observed.
struct Side {
   Side( Mox::TestClock& clock, const std::string& root, ::Brane::TableRole role,
         uint32_t capacity = 2000, bool useInotify = true )
      : Side( clock, root, useInotify ) {
      mount( role, capacity );
   }
   // Not mounted yet.
   explicit Side( Mox::TestClock& clock, const std::string& root,
                  bool useInotify = true )
      : manager( clock, nullptr, root, useInotify ), shelf( shelfOf( manager ) ) {}

   void mount( ::Brane::TableRole role, uint32_t capacity = 4 ) {
      shelf->bookControl()->initialize( role, capacity, false );
   }
   CollectionControl& control() { return *shelf->bookControl(); }
   static Mox::Ptr<Shelf> shelfOf( Corvex::EntityManager& manager ) {
      return Mox::Ptr<Shelf>( dynamic_cast<Shelf*>(
         createEntity( manager, kPath, "MoxBrane::Test::Shelf" ).get() ) );
   }
   static std::string file( const std::string& root ) {
      return root + '/' + kPath + "/book";
   }

   static constexpr const char* kPath = "house/room/shelf";
   Corvex::EntityManager manager;
   Mox::Ptr<Shelf> shelf;
   ShelfRecorder recorder{ shelf.get() };
};

}
