// A mounted table of typed records. The writing process changes it; every process
// looks up, visits and is notified of each changed key.
//
// V is a record whose first field is `key`, with a flat form (Flat.h). Owned by its
// entity; declared there by an attribute row of kind Table (TableAttribute.h).
// Event-loop thread only.
#pragma once

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/mount/Flat.h"
#include "platform/mount/TableBase.h"

namespace MoxBrane {

// For a table that accepts the all-zero key.
inline ::Brane::WriterOptions withZeroKey() {
   ::Brane::WriterOptions options;
   options.zeroKey = true;
   return options;
}

template <class V>
class Table : public TableBase {
   using Form = ::Brane::FlatForm<V>;
   using KeyForm = ::Brane::FlatForm<decltype( V::key )>;

   struct alignas( 16 ) Record {
      typename Form::Bytes bytes;
   };
   static constexpr size_t kRecordSize =
      ( sizeof( typename Form::Bytes ) + 7 ) / 8 * 8;
   static_assert( std::is_trivially_copyable_v<typename Form::Bytes> );
   static_assert( sizeof( typename KeyForm::Bytes ) % 8 == 0 );
   static_assert( offsetof( typename Form::Bytes, key ) == 0 );

 public:
   using Value = V;
   using Key = decltype( V::key );

   struct Callbacks {
      std::function<void( const Key& )> keyChanged;
      std::function<void( const Key& )> keySoon;
      std::function<void()> mountStatusChanged;
   };

   // A value being built in the table's own memory, in its flat form, zeroed at
   // first; see inPlace(). Destruction frees the memory. Must not outlive the
   // table's mount.
   class InPlace {
    public:
      // Null once committed.
      typename Form::Bytes* operator->() const { return bytes(); }
      typename Form::Bytes& operator*() const { return *bytes(); }
      explicit operator bool() const { return bytes() != nullptr; }
      // Writes the whole value.
      // REQUIRES: not committed.
      void is( const V& value ) {
         MOX_ASSERT( bytes() );
         Form::write( value, *bytes() );
      }

    private:
      friend class Table;
      InPlace( const Table& table, ::Brane::Reservation record )
         : table_( &table ), record_( std::move( record ) ) {}
      typename Form::Bytes* bytes() const {
         return static_cast<typename Form::Bytes*>( record_.record() );
      }

      const Table* table_;
      ::Brane::Reservation record_;
   };

   Table( MountedEntity& entity, Mox::String name, Callbacks callbacks,
          ::Brane::WriterOptions options = {},
          Corruption corruption = corruptionThrown )
      : TableBase( entity, std::move( name ), sharedLayout(), std::move( options ),
                   corruption ),
        callbacks_( std::move( callbacks ) ) {}

   // The record's layout, as it stands in the table's header.
   static ::Brane::Layout makeLayout() {
      ::Brane::Layout layout;
      layout.keySize = sizeof( typename KeyForm::Bytes );
      layout.recordSize = kRecordSize;
      layout.fields = Form::fields();
      return layout;
   }

   // Copies the key's record to `out`, which is unspecified unless found. Only a
   // reader finds busy records, either side finds damaged ones: see TableReader.
   // Absent without a mount.
   ::Brane::Lookup find( const Key& key, V& out ) const {
      auto* value = static_cast<const V*>( told() );
      if ( value != nullptr && value->key == key && toldStands() ) {
         out = *value;
         return ::Brane::lookupFound;
      }
      KeyBytes bytes( key );
      Record record;
      ::Brane::Lookup result = lookupRecord( &bytes.bytes, &record );
      if ( result != ::Brane::lookupFound || decode( &record, out ) ) return result;
      return ::Brane::lookupDamaged;
   }

   // A copy of the key's record, or nothing. Throws UnreadableError for a busy or
   // damaged record; find() reports those without an exception.
   std::optional<V> at( const Key& key ) const {
      V value;
      switch ( find( key, value ) ) {
         case ::Brane::lookupFound:
            return value;
         case ::Brane::lookupAbsent:
            return std::nullopt;
         case ::Brane::lookupBusy:
            unreadable( "is being rewritten too fast to be read" );
         case ::Brane::lookupDamaged:
            break;
      }
      unreadable( "is damaged" );
   }

   // Visits the keys that stand when begin() is called. Each record is copied in
   // its turn; one that was removed meanwhile, or cannot be read, is skipped. The
   // table may change, and must outlive the iterators.
   class Iterator {
    public:
      using value_type = V;
      using difference_type = std::ptrdiff_t;
      using pointer = const V*;
      using reference = const V&;
      using iterator_category = std::input_iterator_tag;

      Iterator() = default;
      explicit Iterator( const Table& table )
         : table_( &table ),
           keys_( std::make_shared<const std::vector<Key>>( table.keys() ) ) {
         settle();
      }
      const V& operator*() const { return value_; }
      const V* operator->() const { return &value_; }
      Iterator& operator++() {
         ++next_;
         settle();
         return *this;
      }
      Iterator operator++( int ) {
         Iterator before = *this;
         ++*this;
         return before;
      }
      bool operator==( const Iterator& other ) const {
         return keys_ == other.keys_ && next_ == other.next_;
      }

    private:
      void settle() {
         while ( next_ < keys_->size() &&
                 table_->find( ( *keys_ )[next_], value_ ) != ::Brane::lookupFound )
            ++next_;
         if ( next_ < keys_->size() ) return;
         keys_ = nullptr;
         next_ = 0;
      }

      const Table* table_ = nullptr;
      std::shared_ptr<const std::vector<Key>> keys_;
      size_t next_ = 0;
      V value_{};
   };
   Iterator begin() const { return Iterator( *this ); }
   Iterator end() const { return Iterator(); }

   // Does the key stand? True also while its record is busy or damaged.
   bool has( const Key& key ) const {
      V ignored;
      return find( key, ignored ) != ::Brane::lookupAbsent;
   }

   using Visitor = std::function<bool( const V& )>;
   using Ahead = std::function<void( const Key& )>;

   // Visits the records that stand when it is made, all at once or in parts, in the
   // order of their writing, about. Records that stand throughout are met once. The
   // visitor may change the table, which stays mounted while the walk lives.
   class Walk {
    public:
      explicit Walk( const Table& table ) : table_( table ), walk_( table ) {}

      // Goes on until the visitor says false, whose record then comes again; true at
      // the end. `ahead`, when given, may get keys a little before their turn, to fetch
      // memory; it must not use the table.
      bool advance( const Visitor& visitor, const Ahead& ahead = {} ) {
         KeyHint hint;
         if ( ahead ) {
            hint = [&]( const void* key ) {
               Key decoded;
               if ( decodeKey( key, decoded ) ) ahead( decoded );
            };
         }
         return walk_.advance(
            [&]( const void* record ) {
               V value;
               return !table_.decode( record, value ) || visitor( value );
            },
            hint );
      }

    private:
      const Table& table_;
      RecordWalk walk_;
   };

   // A whole walk, or until the visitor says false.
   void visit( const Visitor& visitor, const Ahead& ahead = {} ) const {
      Walk( *this ).advance( visitor, ahead );
   }

   // Writes or replaces the record under value.key, then notifies the key, even
   // when the value is equal. Throws ReadOnlyError unless mounted for writing, and
   // the exceptions of TableWriter::put.
   void is( const V& value ) {
      Record record;
      std::memset( &record, 0, sizeof record );
      Form::write( value, record.bytes );
      const Key key = value.key;
      putRecord( &record );
      callbacks_.keyChanged( key );
   }

   // A value to be written with others.
   struct Item {
      V value;
      // Null: none. Otherwise the place where the key was written before, and gets
      // its place; a stale one only costs time. Lives until the observers hear.
      ::Brane::Position* place = nullptr;
   };
   // Writes many values as is() does, in their order, with the needed memory fetched
   // ahead, then notifies each key. Throws is()'s exceptions for the first value that
   // is refused: those before it are written, and nothing is notified.
   void is( std::span<const Item> items ) {
      for ( size_t at = 0; at < items.size(); at += kTogether )
         putTogether(
            items.subspan( at, std::min( kTogether, items.size() - at ) ) );
      // An observer may change what the items lie in.
      std::vector<Key> keys;
      keys.reserve( items.size() );
      for ( const Item& item : items ) keys.push_back( item.value.key );
      for ( const Key& key : keys ) callbacks_.keyChanged( key );
   }

   // Free memory of the table to build a value in, invisible until commit().
   // REQUIRES: at most 16 of a table at a time. Throws ReadOnlyError.
   InPlace inPlace() { return InPlace( *this, reserveRecord() ); }

   // As is(), but builds the value in the table's own memory.
   void commit( const V* value ) {
      MOX_ASSERT( value );
      InPlace record = inPlace();
      record.is( *value );
      commit( &record );
   }

   // Makes the value in the table's memory its key's record without copying, then
   // notifies the key. Throws as is() does, and frees the memory then. REQUIRES: of
   // this table, not committed yet, its key a key's flat form.
   void commit( InPlace* value ) {
      MOX_ASSERT( value && value->table_ == this && *value );
      Key key;
      MOX_ASSERT( decodeKey( value->bytes(), key ) );
      commitRecord( value->record_ );
      callbacks_.keyChanged( key );
   }

   // Removes, notifies and returns the record; the default value, silently, when
   // there was none. Throws ReadOnlyError.
   V del( const Key& where ) {
      // `where` may be part of what a handler destroys.
      const Key key = where;  // NOLINT(performance-unnecessary-copy-initialization)
      KeyBytes bytes( key );
      Record record;
      V removed{};
      if ( !removeRecord( &bytes.bytes, &record ) ) return removed;
      if ( !decode( &record, removed ) ) removed.key = key;
      callbacks_.keyChanged( key );
      return removed;
   }

   // Removes the present keys one by one and notifies each; keys added meanwhile
   // stay.
   void delAll() {
      for ( const Key& key : keys() ) del( key );
   }

   // The keys that stand.
   std::vector<Key> keys() const {
      std::vector<Key> keys;
      visit( [&]( const V& value ) {
         keys.push_back( value.key );
         return true;
      } );
      return keys;
   }

 private:
   struct KeyBytes {
      explicit KeyBytes( const Key& key ) {
         std::memset( &bytes, 0, sizeof bytes );
         KeyForm::write( key, bytes );
      }
      alignas( 16 ) typename KeyForm::Bytes bytes;
   };

   static constexpr size_t kTogether = 32;

   void putTogether( std::span<const Item> items ) {
      Record records[kTogether];
      ::Brane::TableWriter::PutItem puts[kTogether];
      std::memset( records, 0, items.size() * sizeof( Record ) );
      for ( size_t i = 0; i < items.size(); ++i ) {
         Form::write( items[i].value, records[i].bytes );
         puts[i].record = &records[i];
         if ( items[i].place != nullptr ) puts[i].position = *items[i].place;
      }
      putRecords( { puts, items.size() } );
      for ( size_t i = 0; i < items.size(); ++i )
         if ( items[i].place != nullptr ) *items[i].place = puts[i].position;
   }

   // One for all tables of the type: a process may have thousands.
   static const std::shared_ptr<const ::Brane::Layout>& sharedLayout() {
      static const auto layout =
         std::make_shared<const ::Brane::Layout>( makeLayout() );
      return layout;
   }

   // Not every field's default is all zeros: an infinite metric is not.
   std::vector<std::byte> freshRecord() const override {
      Record fresh;
      std::memset( &fresh, 0, sizeof fresh );
      Form::write( V(), fresh.bytes );
      auto* bytes = reinterpret_cast<const std::byte*>( &fresh );
      return { bytes, bytes + kRecordSize };
   }

   static bool read( const void* record, V& out ) {
      typename Form::Bytes bytes;
      std::memcpy( &bytes, record, sizeof bytes );
      return Form::read( bytes, out );
   }

   bool decode( const void* record, V& out ) const {
      if ( read( record, out ) ) return true;
      ++undecodable_;
      return false;
   }

   static bool decodeKey( const void* key, Key& out ) {
      typename KeyForm::Bytes bytes;
      std::memcpy( &bytes, key, sizeof bytes );
      return KeyForm::read( bytes, out );
   }

   // A whole record is decoded once, for the observer that asks for it, too.
   void handleKey( const void* key, bool whole ) override {
      V value;
      if ( whole && read( key, value ) ) {
         toldIs( &value );
      } else if ( !decodeKey( key, value.key ) ) {
         ++undecodable_;
         return;
      }
      callbacks_.keyChanged( value.key );
   }
   void handleKeySoon( const void* key ) override {
      Key decoded;
      if ( decodeKey( key, decoded ) ) callbacks_.keySoon( decoded );
   }
   void handleMountStatus() override { callbacks_.mountStatusChanged(); }
   bool isValue( const void* record ) const override {
      V value;
      if ( !read( record, value ) ) return false;
      const KeyBytes key( value.key );
      return std::memcmp( &key.bytes, record, sizeof key.bytes ) == 0;
   }

   Callbacks callbacks_;
};

}
