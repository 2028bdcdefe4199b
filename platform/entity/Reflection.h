// Reflection by name: a type's attribute list at run time.
#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <span>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "platform/base/Text.h"

namespace Mox {

class Entity;

// One row of an attribute list.
struct AttributeInfo {
   StringView name;
   StringView kind;
   StringView type;
   StringView meaning;
   String ( *get )( const Entity& entity );
   // Null where the attribute cannot be written as text.
   void ( *set )( Entity& entity, StringView text );
};

struct TypeInfo {
   String name;  // the full C++ name
   // In order of declaration.
   std::span<const AttributeInfo> attributes;
   // The attributes of kind Alone, which are read by name only.
   std::span<const AttributeInfo> unlisted;

   // Listed or unlisted. Throws NameError when the type has no attribute of that
   // name.
   PIMSM_API const AttributeInfo& attribute( StringView attributeName ) const;
};

// Keys of any collection as they are now.
template <class C>
std::vector<typename C::key_type> keysOf( const C& collection ) {
   std::vector<typename C::key_type> keys;
   keys.reserve( collection.size() );
   for ( const auto& member : collection ) {
      if constexpr ( requires { member.mapKey(); } ) {
         keys.push_back( member.mapKey() );
      } else if constexpr ( requires { member.first; } ) {
         keys.push_back( member.first );
      } else {
         keys.push_back( member );
      }
   }
   return keys;
}

namespace Detail {

// Sorts the rows: attributes of kind Alone come last.
PIMSM_API TypeInfo typeInfoOf( String name, std::span<AttributeInfo> rows );

PIMSM_API String fullTypeName( const std::type_info& type );

template <class T>
String fullTypeName() {
   return fullTypeName( typeid( T ) );
}

template <class T>
inline constexpr bool isCounted = false;
template <class T>
inline constexpr bool isCounted<boost::intrusive_ptr<T>> = true;

template <class T>
concept Collection = requires( const T& t ) {
   typename T::key_type;
   t.begin();
};

// Text of an attribute's value: its text form; a pointer's address, 0x0 for a null
// one; a collection's keys in brackets.
template <class T>
String attributeValueText( const T& value ) {
   if constexpr ( std::is_pointer_v<T> ) {
      return pointerText( value );
   } else if constexpr ( isCounted<T> ) {
      return attributeValueText( value.get() );
   } else if constexpr ( Collection<T> ) {
      String out = "[";
      for ( const auto& key : keysOf( value ) ) {
         if ( out.size() > 1 ) out += ", ";
         out += valueToStrep( key );
      }
      return out + "]";
   } else {
      return valueToStrep( value );
   }
}

constexpr bool capitalised( StringView name, StringView capital ) {
   return name.size() == capital.size() && !name.empty() &&
          name.substr( 1 ) == capital.substr( 1 ) &&
          ( name[0] >= 'a' && name[0] <= 'z' ) && capital[0] == name[0] - 'a' + 'A';
}

}
}
