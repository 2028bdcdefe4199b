// A mapping of the configuration: keys are taken by name, and a remaining key is an
// error. Errors carry file and line.
#pragma once

#include <yaml-cpp/yaml.h>

#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "apps/config/ConfigReader.h"
#include "platform/base/Text.h"

namespace Agent {

// A fault of one node. `missing`: the key that the node lacks, if that is the fault.
class NodeError : public ConfigError {
 public:
   NodeError( const std::string& text, const YAML::Node& node,
              const std::string& missing )
      : ConfigError( text ), node_( node ), missing_( missing ) {}

   const YAML::Node& node() const { return node_; }
   const std::string& missing() const { return missing_; }

 private:
   YAML::Node node_;
   std::string missing_;
};

// A node and its file.
struct Place {
   YAML::Node node;
   const std::string* file;

   Place at( const YAML::Node& inner ) const { return { inner, file }; }

   // Throws NodeError.
   [[noreturn]] void fail( const std::string& text,
                           const std::string& missing = "" ) const;

   // The text of a scalar; `what` names the value in the error if it is no scalar.
   std::string text( const std::string& what ) const;

   // The members of a list; none for an empty value.
   std::vector<Place> list( const std::string& what ) const;
};

class Section {
 public:
   // `what` names the mapping in errors: "interface". Throws ConfigError if the
   // node is no mapping, or a key comes twice.
   Section( Place place, std::string what );

   const Place& place() const { return place_; }

   // Nothing if the key is absent.
   std::optional<Place> take( const std::string& key );
   // Throws ConfigError if the key is absent.
   Place require( const std::string& key );

   // The members of the list under the key; none if it is absent.
   std::vector<Place> list( const std::string& key );

   // Converts the value in its text form; an absent key leaves `out`.
   template <class T>
   void value( const std::string& key, T& out ) {
      std::optional<Place> found = take( key );
      if ( found ) out = convert<T>( *found, key );
   }

   template <class T>
   T required( const std::string& key ) {
      return convert<T>( require( key ), key );
   }

   // Throws ConfigError for a key that was not taken.
   void finish() const;

   template <class T>
   static T convert( const Place& place, const std::string& what ) {
      try {
         return fromText<T>( place.text( what ) );
      } catch ( const ConfigError& ) {
         throw;
      } catch ( const Mox::Error& e ) {
         place.fail( what + ": " + e.what() );
      }
   }

 private:
   // Names are written without the quotes of their text form.
   template <class T>
   static T fromText( const std::string& text ) {
      if constexpr ( std::is_same_v<T, std::string> ) {
         return text;
      } else if constexpr ( std::is_same_v<T, bool> ) {
         // Also accepts YAML's older words, which operators write.
         if ( text == "yes" || text == "no" ) return text == "yes";
         return Mox::stringToValue<bool>( text );
      } else if constexpr ( std::is_constructible_v<T, Mox::StringView> ) {
         return T( Mox::StringView( text ) );
      } else {
         return Mox::stringToValue<T>( text );
      }
   }

   Place place_;
   std::string what_;
   std::set<std::string> taken_;
};

}
