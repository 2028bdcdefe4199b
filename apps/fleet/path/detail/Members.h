// Checked reading of a JSON value of a store. A member that is missing has its default;
// one of another type throws Mox::ParseError with its name.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/fleet/path/Facts.h"
#include "platform/base/Error.h"

namespace Fleet {

using Json = nlohmann::json;

// The document. Throws Mox::ParseError if it is none, too large or too deep.
Json documentOf( std::string_view value );

class Members {
 public:
   // REQUIRES: the JSON outlives this. Throws Mox::ParseError if it is no object.
   explicit Members( const Json& json );

   bool flag( const char* name ) const;
   std::string text( const char* name ) const;
   std::optional<uint64_t> number( const char* name, uint64_t most ) const;
   std::optional<uint32_t> word( const char* name ) const;
   std::optional<double> real( const char* name ) const;
   // Of these 64 bits the text is decimal: RFC 7951.
   std::optional<uint64_t> counter( const char* name ) const;
   IpGenAddr address( const char* name ) const;
   std::vector<IpGenAddr> addresses( const char* name ) const;
   IpGenPrefix prefix( const char* name ) const;
   std::vector<IpGenPrefix> prefixes( const char* name ) const;
   Time time( const char* name ) const;
   // Null: missing.
   const Json* array( const char* name, size_t most = SIZE_MAX ) const;
   const Json* object( const char* name ) const;

   // The value that stands beside the word in the table; the first of them where the
   // member is missing.
   template <class Value, size_t n>
   Value choice( const char* name,
                 const std::pair<const char*, Value> ( &words )[n] ) const {
      const Json* found = member( name );
      if ( found == nullptr ) return words[0].second;
      const std::string is = text( name );
      for ( const auto& [word, value] : words )
         if ( is == word ) return value;
      throw Mox::ParseError( std::string( name ) + " is no word that is known" );
   }

 private:
   const Json* member( const char* name ) const;

   const Json& json_;
};

}
