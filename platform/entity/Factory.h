// Factories by type name: how an entity is created when only its type's full name
// is known.
//
//    MOX_FACTORY( Status, []( Mox::StringView name ) { ... } )
//
// in a type's source file registers it for the process. Event-loop thread only.
#pragma once

#include <functional>
#include <vector>

#include "platform/entity/Entity.h"

namespace Mox {

// Makes a new entity, its notifications on. `name` is what the type's constructor
// takes, as text; types without a constructor argument ignore it.
using EntityFactory = std::function<Ptr<Entity>( StringView name )>;

// Registers under the full C++ name. A second factory for a type is fatal.
PIMSM_API void entityFactoryIs( StringView typeName, const EntityFactory& factory );

// Throws NameError when no factory is registered for the type.
PIMSM_API Ptr<Entity> newEntityByType( StringView typeName, StringView name );

// The registered type names in ascending order.
PIMSM_API std::vector<String> entityTypeNames();

struct FactoryRegistration {
   FactoryRegistration( StringView typeName, const EntityFactory& factory ) {
      entityFactoryIs( typeName, factory );
   }
};

}

#define MOX_FACTORY( Type, ... )                                      \
   static const ::Mox::FactoryRegistration Type##FactoryRegistration( \
      ::Mox::Detail::fullTypeName<Type>(), __VA_ARGS__ );
