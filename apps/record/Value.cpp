#include "apps/record/Value.h"

#include <fstream>

#include "apps/json/YangData.h"
#include "apps/store/Key.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

Value valueOf( const Json& json ) {
   std::string text = Show::jsonText( json );
   const uint64_t digest = digestOf( text );
   return { std::move( text ), digest };
}

const std::string& bootId() {
   static const std::string id = [] {
      std::ifstream file( "/proc/sys/kernel/random/boot_id" );
      std::string text;
      file >> text;
      return text;
   }();
   return id;
}

}
