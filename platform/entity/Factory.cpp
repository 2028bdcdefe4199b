#include "platform/entity/Factory.h"

#include <map>

namespace Mox {
namespace {

// Made on first use: registrations run during static initialisation.
std::map<String, EntityFactory, std::less<>>& factories() {
   static std::map<String, EntityFactory, std::less<>> all;
   return all;
}

}

void entityFactoryIs( StringView typeName, const EntityFactory& factory ) {
   bool added = factories().try_emplace( String( typeName ), factory ).second;
   MOX_ASSERT_TEXT( added, "one factory a type" );
}

Ptr<Entity> newEntityByType( StringView typeName, StringView name ) {
   auto found = factories().find( typeName );
   if ( found == factories().end() ) {
      throw NameError( "no factory for type " + String( typeName ) );
   }
   return found->second( name );
}

std::vector<String> entityTypeNames() {
   std::vector<String> names;
   for ( const auto& [name, factory] : factories() ) names.push_back( name );
   return names;
}

}
