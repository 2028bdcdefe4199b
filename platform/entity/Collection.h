// Collections of entities. An entity's attribute list declares them (kind Map); the
// owner alone adds and removes, through its mutators.
//
// A member type T tells its key by `const K& mapKey() const`. Iteration yields the
// members by reference; adding or removing while iterating invalidates it, so a
// loop whose body can do so walks keysOf( collection ) instead.
#pragma once

#include <map>

#include "platform/base/Prefetch.h"
#include "platform/entity/Entity.h"

namespace Mox {

// The members of a hashed collection in a dense array of 16-byte slots, with an
// open-addressed index of one, two or four bytes a place. Visiting does not touch
// the index; up to `kScanned` members are found without an index. Plain pointers
// and 32-bit sizes: every route has three, most of them empty.
class PIMSM_API HashedSlots {
 public:
   struct Slot {
      uint64_t hash;
      Entity* member;
   };

   HashedSlots() = default;
   HashedSlots( const HashedSlots& ) = delete;
   HashedSlots& operator=( const HashedSlots& ) = delete;
   ~HashedSlots() { clear(); }

   std::span<const Slot> slots() const { return { slots_, size_ }; }

   // Position of the member that has this hash and satisfies `match`, or npos.
   static constexpr size_t npos = static_cast<size_t>( -1 );
   template <class Match>
   size_t find( uint64_t hash, Match match ) const {
      if ( index_ == nullptr ) {
         for ( size_t i = 0; i < size_; ++i ) {
            if ( slots_[i].hash == hash && match( slots_[i].member ) ) return i;
         }
         return npos;
      }
      for ( size_t place = hash & mask();; place = ( place + 1 ) & mask() ) {
         size_t position = at( place );
         if ( position == npos ) return npos;
         const Slot& slot = slots_[position];
         if ( slot.hash == hash && match( slot.member ) ) return position;
      }
   }

   // The position found last, npos if it is none; in a large collection only. Members are
   // asked for several times in a row, and the last one is in the cache.
   size_t lastFound() const { return width_ > 1 && last_ < size_ ? last_ : npos; }
   size_t found( size_t position ) const {
      if ( position != npos ) last_ = static_cast<uint32_t>( position );
      return position;
   }

   // Fetches the memory that find() reads before it reaches a member, and that
   // add() writes.
   void prefetch( uint64_t hash ) const {
      Mox::prefetch( slots_ + size_ );
      if ( index_ == nullptr ) return;
      Mox::prefetch( index_ + ( hash & mask() ) * width_ );
   }
   // The first member of this hash; null when there is none.
   Entity* likely( uint64_t hash ) const {
      size_t position = find( hash, []( const Entity* ) { return true; } );
      return position == npos ? nullptr : slots_[position].member;
   }

   // REQUIRES: no such member yet.
   void add( uint64_t hash, Entity* member );
   // The last member moves to the removed one's position.
   void remove( size_t position );

 private:
   static constexpr size_t kScanned = 8;

   size_t places() const { return size_t( 1 ) << placesLog_; }
   size_t mask() const { return places() - 1; }
   void clear();
   void grow();
   size_t at( size_t place ) const {
      if ( width_ == 1 ) {
         return index_[place] == 0xff ? npos : index_[place];
      }
      return wideAt( place );
   }
   size_t wideAt( size_t place ) const;
   void atIs( size_t place, size_t position );
   size_t placeOf( size_t position ) const;
   void clearPlace( size_t place );
   void rebuild();

   Slot* slots_ = nullptr;
   uint8_t* index_ = nullptr;  // null: none
   uint32_t size_ = 0;
   uint32_t room_ = 0;  // slots
   mutable uint32_t last_ = 0;
   uint8_t placesLog_ = 0;
   uint8_t width_ = 1;
};

static_assert( sizeof( HashedSlots::Slot ) == 16 && sizeof( HashedSlots ) == 32 );

// Unordered collection of counted members; hash by std::hash<K>.
template <class K, class T>
class HashedMap {
   template <class Member>
   class Iterator {
    public:
      using value_type = Member;
      using difference_type = std::ptrdiff_t;
      Iterator() = default;
      explicit Iterator( const HashedSlots::Slot* slot ) : slot_( slot ) {}
      Member& operator*() const { return *static_cast<T*>( slot_->member ); }
      Member* operator->() const { return &**this; }
      Iterator& operator++() {
         ++slot_;
         return *this;
      }
      Iterator operator++( int ) { return Iterator( slot_++ ); }
      bool operator==( const Iterator& ) const = default;

    private:
      const HashedSlots::Slot* slot_ = nullptr;
   };

 public:
   using key_type = K;
   using Member = T;

   HashedMap() = default;
   HashedMap( const HashedMap& ) = delete;
   HashedMap& operator=( const HashedMap& ) = delete;
   ~HashedMap() {
      for ( const auto& slot : slots_.slots() ) {
         intrusive_ptr_release( static_cast<T*>( slot.member ) );
      }
   }

   size_t size() const { return slots_.slots().size(); }
   bool empty() const { return size() == 0; }
   T* find( const K& key ) { return lookup( key ); }
   const T* find( const K& key ) const { return lookup( key ); }

   // For callers that know early which keys they will find or add. Memory is
   // fetched in steps with other work between them: first the key's place, then the
   // likely member.
   void prefetch( const K& key ) const { slots_.prefetch( hashOf( key ) ); }
   // The first member with the key's hash; the member itself is not read. Null when
   // there is none.
   const T* likely( const K& key ) const {
      return static_cast<const T*>( slots_.likely( hashOf( key ) ) );
   }

   auto begin() { return Iterator<T>( slots_.slots().data() ); }
   auto end() { return Iterator<T>( slots_.slots().data() + size() ); }
   auto begin() const { return Iterator<const T>( slots_.slots().data() ); }
   auto end() const { return Iterator<const T>( slots_.slots().data() + size() ); }

 private:
   friend struct CollectionOwner;

   static uint64_t hashOf( const K& key ) {
      // std::hash of a small type may be the identity: spread it.
      uint64_t h = std::hash<K>()( key ) * 0x9e3779b97f4a7c15ULL;
      return h ^ ( h >> 32 );
   }
   size_t position( const K& key ) const {
      const auto matches = [&]( const Entity* member ) {
         return static_cast<const T*>( member )->mapKey() == key;
      };
      const size_t last = slots_.lastFound();
      if ( last != HashedSlots::npos && matches( slots_.slots()[last].member ) )
         return last;
      return slots_.found( slots_.find( hashOf( key ), matches ) );
   }
   T* lookup( const K& key ) const {
      size_t found = position( key );
      if ( found == HashedSlots::npos ) return nullptr;
      return static_cast<T*>( slots_.slots()[found].member );
   }
   void add( const K& key, T* member ) {
      slots_.add( hashOf( key ), member );
      intrusive_ptr_add_ref( member );
   }
   Ptr<T> remove( const K& key ) {
      size_t found = position( key );
      if ( found == HashedSlots::npos ) return nullptr;
      Ptr<T> member( static_cast<T*>( slots_.slots()[found].member ), false );
      slots_.remove( found );
      return member;
   }

   HashedSlots slots_;
};

// Collection of counted members in ascending key order.
template <class K, class T>
class OrderedMap {
   using Tree = std::map<K, Ptr<T>>;

   template <class Member, class Base>
   class Iterator : public Base {
    public:
      using value_type = Member;
      Iterator() = default;
      explicit Iterator( Base base ) : Base( base ) {}
      Member& operator*() const { return *Base::operator*().second; }
      Member* operator->() const { return &**this; }
   };

 public:
   using key_type = K;
   using Member = T;

   size_t size() const { return tree_.size(); }
   bool empty() const { return tree_.empty(); }
   T* find( const K& key ) { return lookup( key ); }
   const T* find( const K& key ) const { return lookup( key ); }

   auto begin() { return Iterator<T, typename Tree::iterator>( tree_.begin() ); }
   auto end() { return Iterator<T, typename Tree::iterator>( tree_.end() ); }
   auto begin() const {
      return Iterator<const T, typename Tree::const_iterator>( tree_.begin() );
   }
   auto end() const {
      return Iterator<const T, typename Tree::const_iterator>( tree_.end() );
   }

 private:
   friend struct CollectionOwner;

   T* lookup( const K& key ) const {
      auto found = tree_.find( key );
      return found == tree_.end() ? nullptr : found->second.get();
   }
   void add( const K& key, T* member ) { tree_.emplace( key, member ); }
   Ptr<T> remove( const K& key ) {
      auto found = tree_.find( key );
      if ( found == tree_.end() ) return nullptr;
      Ptr<T> member = std::move( found->second );
      tree_.erase( found );
      return member;
   }

   Tree tree_;
};

// What mutators of kind Map use; nobody else adds or removes.
struct CollectionOwner {
   template <class C>
   static void add( C& collection, typename C::Member* member ) {
      collection.add( member->mapKey(), member );
   }
   template <class C>
   static auto remove( C& collection, const typename C::key_type& key ) {
      return collection.remove( key );
   }
};

// Members that have left their collection, or never had a place in one, and are
// still held. Their plain back pointers must be cleared when the owner goes.
template <class T>
class Strays {
 public:
   // REQUIRES: not added before.
   void add( T* member ) { slots_.add( hashOf( member ), member ); }
   void remove( T* member ) {
      size_t place = slots_.find(
         hashOf( member ), [&]( const Entity* each ) { return each == member; } );
      if ( place != HashedSlots::npos ) slots_.remove( place );
   }
   // In order of addition until one is removed.
   std::vector<T*> members() const {
      std::vector<T*> members;
      for ( const auto& slot : slots_.slots() )
         members.push_back( static_cast<T*>( slot.member ) );
      return members;
   }

 private:
   static uint64_t hashOf( const T* member ) {
      uint64_t h = reinterpret_cast<uintptr_t>( member ) * 0x9e3779b97f4a7c15ULL;
      return h ^ ( h >> 32 );
   }

   HashedSlots slots_;
};

}
