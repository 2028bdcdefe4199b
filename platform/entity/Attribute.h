// clang-format off
// Attribute lists: one line declares an attribute whole.
//
//    #define PIMSM_SOURCE_ATTRIBUTES( A ) ...rows, each
//       A( kind, name, Name, type, initial, "meaning" )
//
//    class Source : public Mox::Entity {
//     public:
//       MOX_ENTITY( Source, PIMSM_SOURCE_ATTRIBUTES )
//
// and in its source file MOX_ENTITY_TYPE( Source, PIMSM_SOURCE_ATTRIBUTES ). `Name`
// is `name` with its first letter capital. A type with commas gets an alias first.
// Reader, mutator, hook, storage `name_`, initial value and reflection follow from
// the row; storage is in row order. The kinds:
//
//   Fixed     constructor argument, stored in `name_` by the constructor; no mutator
//   Value     nameIs( v ): an equal value does nothing, else store and notify onName
//   Reacting  as Value, and the class's handleName() runs before the notification
//   Counter   as Value for an unsigned type; nameInc( n ), nameDec( n ) wrap around,
//             notify only on change and return the new value
//   View      a counted reference to something read only (type is the target's);
//             compared by identity; null allowed
//   Child     one counted member: nameIs() returns it, made by the class's newName()
//             when absent; nameDel() removes and returns it
//   Map       collection of entities (Collection.h): nameIs( key ) returns the
//             member, made by the class's newName( key ) when absent; name( key )
//             looks up, null when absent; nameDel( key ) removes and returns it,
//             null and silent when absent; nameDelAll(). Hook onName( key ).
//             nameAdd( member ) is for the class's own creation functions.
//   ReactingMap  as Map, and the class's handleNameDel( member ) runs after a
//             removal, before its notification
//   ValueMap  standard map of values: nameIs( key, value ), nameDel( key ) telling
//             whether it was there, nameDelAll(); name( key ) is a pointer, null
//             when absent. Hook onName( key ).
//   Set       standard set: nameIs( key ), nameHas( key ), nameDel, nameDelAll; hook
//             onName( key )
//   Computed  no storage: the class defines name() const; listed for reflection
//   Alone     as Computed, but read only when asked for by its name, and left out where
//             all attributes are listed: an assertion stands behind it, or it shows what
//             another attribute shows
//   Via       no storage: reads and, through reflection alone, writes the attribute
//             of the same name on the Child that stands in the `initial` column; the
//             default of the type while that is null
//
// A value or key of the wrong type gives one compile error that says so. So does a
// text for a flag or a fraction for a count.
//
// nameDelAll takes the keys as they are and removes and notifies one at a time; keys
// added meanwhile stay. A mutator copies the key that it notifies, so the caller's
// may be the collection's own.
// clang-format on
#pragma once

#include "platform/entity/Collection.h"

namespace Mox {

// How mutators take a value and readers return it: small trivial types by value.
template <class T>
using In = std::conditional_t<std::is_trivially_copyable_v<T> && sizeof( T ) <= 16,
                              T, const T&>;

namespace Detail {

// May a mutator take this type? Silent conversions of the language are refused,
// too: a text is no flag, a fraction no count.
template <class Given, class Wanted>
constexpr bool fits() {
   if ( std::is_same_v<Wanted, bool> && std::is_pointer_v<std::decay_t<Given>> )
      return false;
   if ( std::is_integral_v<Wanted> && std::is_floating_point_v<Given> )
      return false;
   return std::is_convertible_v<const Given&, Wanted> ||
          std::is_convertible_v<Given, Wanted>;
}

// The compile error, and the only one, for an argument of the wrong type.
template <class Given, class Wanted>
void refuseValue() {
   static_assert( fits<Given, Wanted>(),
                  "an attribute takes values of its own type: Wanted, not Given" );
}
template <class Given, class Wanted>
void refuseTarget() {
   static_assert( fits<Given, Wanted>(),
                  "an observer watches an entity of its own type, by a plain "
                  "pointer: Wanted, not Given" );
}

template <class T>
concept Parseable =
   !std::is_pointer_v<T> && requires( StringIter & begin, StringIter end, T& out ) {
   sequenceToValue( begin, end, out );
};

template <class Self, class T, void ( Self::*mutator )( In<T> )>
constexpr auto textSetter() -> void ( * )( Entity&, StringView ) {
   if constexpr ( Parseable<T> ) {
      return []( Entity& entity, StringView text ) {
         ( static_cast<Self&>( entity ).*mutator )( stringToValue<T>( text ) );
      };
   } else {
      return nullptr;
   }
}

}
}

// ---- the rows' parts by kind; MOX_x_Kind( name, Name, type, initial, meaning )
// ----

// An overload beside mutator( Wanted ) that refuses every other type.
#define MOX_REFUSE( mutator, Result, Wanted, reason )                \
   template <class Given>                                            \
   requires( !::Mox::Detail::fits<Given, Wanted>() ) Result mutator( \
      const Given& ) {                                               \
      ::Mox::Detail::reason<Given, Wanted>();                        \
      return Result();                                               \
   }

#define MOX_STORED( name, type, initial ) \
 private:                                 \
   type name##_ = initial;                \
                                          \
 public:

#define MOX_NOTIFY( Name )                        \
   this->template notifyObservers<NotifieeConst>( \
      []( NotifieeConst& observer ) { observer.on##Name(); } )
#define MOX_NOTIFY_KEY( Name )                    \
   this->template notifyObservers<NotifieeConst>( \
      [&key]( NotifieeConst& observer ) { observer.on##Name( key ); } )

#define MOX_ACCESS_Fixed( name, Name, type, initial ) \
   ::Mox::In<type> name() const {                     \
      return name##_;                                 \
   }                                                  \
                                                      \
 private:                                             \
   type name##_;                                      \
                                                      \
 public:

#define MOX_ACCESS_Value( name, Name, type, initial ) \
   ::Mox::In<type> name() const {                     \
      return name##_;                                 \
   }                                                  \
   void name##Is( ::Mox::In<type> value ) {           \
      if ( name##_ == value ) return;                 \
      name##_ = value;                                \
      MOX_NOTIFY( Name );                             \
   }                                                  \
   MOX_REFUSE( name##Is, void, type, refuseValue )    \
   MOX_STORED( name, type, initial )

#define MOX_ACCESS_Reacting( name, Name, type, initial ) \
   ::Mox::In<type> name() const {                        \
      return name##_;                                    \
   }                                                     \
   void name##Is( ::Mox::In<type> value ) {              \
      if ( name##_ == value ) return;                    \
      ::Mox::Pin<Self> pin( this );                      \
      name##_ = value;                                   \
      handle##Name();                                    \
      MOX_NOTIFY( Name );                                \
   }                                                     \
   MOX_REFUSE( name##Is, void, type, refuseValue )       \
   MOX_STORED( name, type, initial )

#define MOX_ACCESS_Counter( name, Name, type, initial ) \
   type name() const {                                  \
      return name##_;                                   \
   }                                                    \
   void name##Is( type value ) {                        \
      if ( name##_ == value ) return;                   \
      name##_ = value;                                  \
      MOX_NOTIFY( Name );                               \
   }                                                    \
   type name##Inc( type n ) {                           \
      auto value = static_cast<type>( name##_ + n );    \
      name##Is( value );                                \
      return value;                                     \
   }                                                    \
   type name##Dec( type n ) {                           \
      auto value = static_cast<type>( name##_ - n );    \
      name##Is( value );                                \
      return value;                                     \
   }                                                    \
   MOX_REFUSE( name##Is, void, type, refuseValue )      \
   MOX_REFUSE( name##Inc, type, type, refuseValue )     \
   MOX_REFUSE( name##Dec, type, type, refuseValue )     \
   MOX_STORED( name, type, initial )

#define MOX_ACCESS_View( name, Name, type, initial )                 \
   const type* name() const {                                        \
      return name##_.get();                                          \
   }                                                                 \
   void name##Is( const ::Mox::Ptr<const type>& value ) {            \
      if ( name##_ == value ) return;                                \
      name##_ = value;                                               \
      MOX_NOTIFY( Name );                                            \
   }                                                                 \
   MOX_REFUSE( name##Is, void, ::Mox::Ptr<const type>, refuseValue ) \
   MOX_STORED( name, ::Mox::Ptr<const type>, nullptr )

#define MOX_ACCESS_Child( name, Name, type, initial ) \
   type* name() {                                     \
      return name##_.get();                           \
   }                                                  \
   const type* name() const {                         \
      return name##_.get();                           \
   }                                                  \
   ::Mox::Ptr<type> name##Is() {                      \
      if ( name##_ != nullptr ) return name##_;       \
      ::Mox::Ptr<type> made( new##Name() );           \
      made->notificationsEnabledIs( true );           \
      name##_ = made;                                 \
      MOX_NOTIFY( Name );                             \
      return made;                                    \
   }                                                  \
   ::Mox::Ptr<type> name##Del() {                     \
      ::Mox::Ptr<type> removed;                       \
      removed.swap( name##_ );                        \
      if ( removed != nullptr ) MOX_NOTIFY( Name );   \
      return removed;                                 \
   }                                                  \
   MOX_STORED( name, ::Mox::Ptr<type>, nullptr )

#define MOX_ACCESS_MAP( name, Name, type, REMOVED )                              \
   type& name() {                                                                \
      return name##_;                                                            \
   }                                                                             \
   const type& name() const {                                                    \
      return name##_;                                                            \
   }                                                                             \
   type::Member* name( const type::key_type& key ) {                             \
      return name##_.find( key );                                                \
   }                                                                             \
   const type::Member* name( const type::key_type& key ) const {                 \
      return name##_.find( key );                                                \
   }                                                                             \
   ::Mox::Ptr<type::Member> name##Is( const type::key_type& key ) {              \
      if ( type::Member* existing = name##_.find( key ) ) return existing;       \
      return name##Add( new##Name( key ) );                                      \
   }                                                                             \
   MOX_REFUSE( name##Is, ::Mox::Ptr<type::Member>, type::key_type, refuseValue ) \
   ::Mox::Ptr<type::Member> name##Del( const type::key_type& where ) {           \
      type::key_type key = where;                                                \
      ::Mox::Ptr<type::Member> removed =                                         \
         ::Mox::CollectionOwner::remove( name##_, key );                         \
      if ( removed == nullptr ) return removed;                                  \
      REMOVED( Name );                                                           \
      MOX_NOTIFY_KEY( Name );                                                    \
      return removed;                                                            \
   }                                                                             \
   void name##DelAll() {                                                         \
      ::Mox::Pin<Self> pin( this );                                              \
      for ( const auto& key : ::Mox::keysOf( name##_ ) ) name##Del( key );       \
   }                                                                             \
                                                                                 \
 private:                                                                        \
   ::Mox::Ptr<type::Member> name##Add( ::Mox::Ptr<type::Member> made ) {         \
      made->notificationsEnabledIs( true );                                      \
      ::Mox::CollectionOwner::add( name##_, made.get() );                        \
      const type::key_type key = made->mapKey();                                 \
      MOX_NOTIFY_KEY( Name );                                                    \
      return made;                                                               \
   }                                                                             \
   type name##_;                                                                 \
                                                                                 \
 public:

#define MOX_REMOVED_IGNORED( Name )
#define MOX_REMOVED_HANDLED( Name ) handle##Name##Del( *removed )
#define MOX_ACCESS_Map( name, Name, type, initial ) \
   MOX_ACCESS_MAP( name, Name, type, MOX_REMOVED_IGNORED )
#define MOX_ACCESS_ReactingMap( name, Name, type, initial ) \
   MOX_ACCESS_MAP( name, Name, type, MOX_REMOVED_HANDLED )

// Removal from value maps and sets.
#define MOX_ERASED( name, Name, type )                                     \
   bool name##Del( const type::key_type& where ) {                         \
      type::key_type key = where;                                          \
      if ( name##_.erase( key ) == 0 ) return false;                       \
      MOX_NOTIFY_KEY( Name );                                              \
      return true;                                                         \
   }                                                                       \
   void name##DelAll() {                                                   \
      ::Mox::Pin<Self> pin( this );                                        \
      for ( const auto& key : ::Mox::keysOf( name##_ ) ) name##Del( key ); \
   }

#define MOX_ACCESS_ValueMap( name, Name, type, initial )                          \
   const type& name() const {                                                     \
      return name##_;                                                             \
   }                                                                              \
   const type::mapped_type* name( const type::key_type& key ) const {             \
      auto found = name##_.find( key );                                           \
      return found == name##_.end() ? nullptr : &found->second;                   \
   }                                                                              \
   void name##Is( const type::key_type& where, const type::mapped_type& value ) { \
      type::key_type key = where;                                                 \
      auto [place, added] = name##_.try_emplace( key, value );                    \
      if ( !added ) {                                                             \
         if ( place->second == value ) return;                                    \
         place->second = value;                                                   \
      }                                                                           \
      MOX_NOTIFY_KEY( Name );                                                     \
   }                                                                              \
   MOX_ERASED( name, Name, type )                                                 \
   MOX_STORED( name, type, {} )

#define MOX_ACCESS_Set( name, Name, type, initial )               \
   const type& name() const {                                     \
      return name##_;                                             \
   }                                                              \
   bool name##Has( const type::key_type& key ) const {            \
      return name##_.count( key ) != 0;                           \
   }                                                              \
   void name##Is( const type::key_type& where ) {                 \
      type::key_type key = where;                                 \
      if ( name##_.insert( key ).second ) MOX_NOTIFY_KEY( Name ); \
   }                                                              \
   MOX_REFUSE( name##Is, void, type::key_type, refuseValue )      \
   MOX_ERASED( name, Name, type )                                 \
   MOX_STORED( name, type, {} )

#define MOX_ACCESS_Computed( name, Name, type, initial )
#define MOX_ACCESS_Alone( name, Name, type, initial )

#define MOX_ACCESS_Via( name, Name, type, child )                   \
   type name() const {                                              \
      return child() != nullptr ? type( child()->name() ) : type(); \
   }

#define MOX_HOOK_Fixed( Name, type )
#define MOX_HOOK_Value( Name, type ) \
   virtual void on##Name() {}
#define MOX_HOOK_Reacting( Name, type ) \
   virtual void on##Name() {}
#define MOX_HOOK_Counter( Name, type ) \
   virtual void on##Name() {}
#define MOX_HOOK_View( Name, type ) \
   virtual void on##Name() {}
#define MOX_HOOK_Child( Name, type ) \
   virtual void on##Name() {}
#define MOX_HOOK_KEY( Name, type ) \
   virtual void on##Name( const type::key_type& ) {}
#define MOX_HOOK_Map( Name, type ) MOX_HOOK_KEY( Name, type )
#define MOX_HOOK_ReactingMap( Name, type ) MOX_HOOK_KEY( Name, type )
#define MOX_HOOK_ValueMap( Name, type ) MOX_HOOK_KEY( Name, type )
#define MOX_HOOK_Set( Name, type ) MOX_HOOK_KEY( Name, type )
#define MOX_HOOK_Computed( Name, type )
#define MOX_HOOK_Alone( Name, type )
#define MOX_HOOK_Via( Name, type )

#define MOX_SET_BY_MUTATOR( name, type )                                       \
   ::Mox::Detail::textSetter<Self, type,                                       \
                             static_cast<void ( Self::* )( ::Mox::In<type> )>( \
                                &Self::name##Is )>()
#define MOX_SET_Value( name, type, initial ) MOX_SET_BY_MUTATOR( name, type )
#define MOX_SET_Reacting( name, type, initial ) MOX_SET_BY_MUTATOR( name, type )
#define MOX_SET_Counter( name, type, initial ) MOX_SET_BY_MUTATOR( name, type )
#define MOX_SET_Fixed( name, type, initial ) nullptr
#define MOX_SET_View( name, type, initial ) nullptr
#define MOX_SET_Child( name, type, initial ) nullptr
#define MOX_SET_Map( name, type, initial ) nullptr
#define MOX_SET_ReactingMap( name, type, initial ) nullptr
#define MOX_SET_ValueMap( name, type, initial ) nullptr
#define MOX_SET_Set( name, type, initial ) nullptr
#define MOX_SET_Computed( name, type, initial ) nullptr
#define MOX_SET_Alone( name, type, initial ) nullptr
#define MOX_SET_Via( name, type, child )                                        \
   []( ::Mox::Entity& entity, ::Mox::StringView text ) {                        \
      auto* target = static_cast<Self&>( entity ).child();                      \
      if ( target == nullptr ) throw ::Mox::NameError( "there is no " #child ); \
      target->name##Is( ::Mox::stringToValue<type>( text ) );                   \
   }

#define MOX_ROW_CHECK( kind, name, Name, type, initial, meaning ) \
   static_assert( ::Mox::Detail::capitalised( #name, #Name ), #name " / " #Name );
#define MOX_ROW_HOOK( kind, name, Name, type, initial, meaning ) \
   MOX_HOOK_##kind( Name, type )
#define MOX_ROW_ACCESS( kind, name, Name, type, initial, meaning ) \
   MOX_ACCESS_##kind( name, Name, type, initial )
#define MOX_ROW_INFO( kind, name, Name, type, initial, meaning )            \
   ::Mox::AttributeInfo{ #name,                                             \
                         #kind,                                             \
                         #type,                                             \
                         meaning,                                           \
                         []( const ::Mox::Entity& entity ) {                \
                            return ::Mox::Detail::attributeValueText(       \
                               static_cast<const Self&>( entity ).name() ); \
                         },                                                 \
                         MOX_SET_##kind( name, type, initial ) },

// Stands in the class body, after the types that the rows name.
#define MOX_ENTITY( Type, ATTRIBUTES )                              \
 public:                                                            \
   using Self = Type;                                               \
   class NotifieeConst : public ::Mox::Entity::NotifieeConst {      \
    public:                                                         \
      const Type* notifier() const {                                \
         return static_cast<const Type*>( target() );               \
      }                                                             \
      void notifierIs( const Type* entity ) { targetIs( entity ); } \
      MOX_REFUSE( notifierIs, void, const Type*, refuseTarget )     \
      ATTRIBUTES( MOX_ROW_HOOK )                                    \
   };                                                               \
   const ::Mox::TypeInfo& typeInfo() const override;                \
   static const ::Mox::TypeInfo& staticTypeInfo();                  \
   ATTRIBUTES( MOX_ROW_CHECK )                                      \
   ATTRIBUTES( MOX_ROW_ACCESS )

// Stands once in the type's source file, in its namespace: the reflection table.
#define MOX_ENTITY_TYPE( Type, ATTRIBUTES )                                      \
   static_assert( !std::is_destructible_v<Type>, #Type                           \
                  ": make the destructor protected: entities are held"           \
                  " by counted pointers" );                                      \
   const ::Mox::TypeInfo& Type::staticTypeInfo() {                               \
      static ::Mox::AttributeInfo rows[] = { ATTRIBUTES( MOX_ROW_INFO ) };       \
      static const ::Mox::TypeInfo info =                                        \
         ::Mox::Detail::typeInfoOf( ::Mox::Detail::fullTypeName<Type>(), rows ); \
      return info;                                                               \
   }                                                                             \
   const ::Mox::TypeInfo& Type::typeInfo() const {                               \
      return staticTypeInfo();                                                   \
   }
