// Observers that record all their notifications.
//
//    PIMSM_TEST_RECORDER( RouteRecorder, Route, PIMSM_ROUTE_ATTRIBUTES )
//
// declares an observer of Route with every hook of the attribute list overridden,
// so that an unexpected notification shows as well as a missing one. A notified
// attribute is noted by its name, one with a key as "name key".
#pragma once

#include <functional>
#include <sstream>
#include <utility>
#include <vector>

#include "platform/entity/Attribute.h"

namespace Mox::Test {

using Heard = std::vector<String>;

template <class Notifiee>
class Recorder : public Notifiee {
 public:
   // Runs inside every notification, after it was noted. May replace itself.
   std::function<void( const String& )> inside;

   const Heard& heard() const { return heard_; }

   // The notifications since the last call.
   Heard take() { return std::exchange( heard_, {} ); }

 protected:
   void hear( const String& what ) {
      heard_.push_back( what );
      if ( auto call = inside ) call( what );
   }

   template <class K>
   void hear( StringView what, const K& key ) {
      std::ostringstream text;
      text << what << ' ' << key;
      hear( text.str() );
   }

 private:
   Heard heard_;
};

}

#define PIMSM_HEAR_PLAIN( name, Name ) \
   void on##Name() override {          \
      this->hear( #name );             \
   }
#define PIMSM_HEAR_KEY( name, Name, type )               \
   void on##Name( const type::key_type& key ) override { \
      this->hear( #name, key );                          \
   }
#define PIMSM_HEAR_Fixed( name, Name, type )
#define PIMSM_HEAR_Computed( name, Name, type )
#define PIMSM_HEAR_Alone( name, Name, type )
#define PIMSM_HEAR_Via( name, Name, type )
#define PIMSM_HEAR_Value( name, Name, type ) PIMSM_HEAR_PLAIN( name, Name )
#define PIMSM_HEAR_Reacting( name, Name, type ) PIMSM_HEAR_PLAIN( name, Name )
#define PIMSM_HEAR_Counter( name, Name, type ) PIMSM_HEAR_PLAIN( name, Name )
#define PIMSM_HEAR_View( name, Name, type ) PIMSM_HEAR_PLAIN( name, Name )
#define PIMSM_HEAR_Child( name, Name, type ) PIMSM_HEAR_PLAIN( name, Name )
#define PIMSM_HEAR_Map( name, Name, type ) PIMSM_HEAR_KEY( name, Name, type )
#define PIMSM_HEAR_ReactingMap( name, Name, type ) \
   PIMSM_HEAR_KEY( name, Name, type )
#define PIMSM_HEAR_ValueMap( name, Name, type ) PIMSM_HEAR_KEY( name, Name, type )
#define PIMSM_HEAR_Set( name, Name, type ) PIMSM_HEAR_KEY( name, Name, type )
#define PIMSM_HEAR_ROW( kind, name, Name, type, initial, meaning ) \
   PIMSM_HEAR_##kind( name, Name, type )

#define PIMSM_TEST_RECORDER( Name, Type, ATTRIBUTES )                         \
   class Name : public ::Mox::Test::Recorder<Type::NotifieeConst> {           \
    public:                                                                   \
      explicit Name( const Type* entity = nullptr ) { notifierIs( entity ); } \
      ATTRIBUTES( PIMSM_HEAR_ROW )                                            \
   };
