#include "platform/net/IntfId.h"

#include <deque>
#include <unordered_map>
#include <vector>

#include "platform/base/Error.h"

namespace Vantu {
namespace {

// The names by number; number 0 is the empty name.
class Names {
 public:
   // Never destroyed: static objects may name interfaces until the process ends.
   static Names& instance() {
      static Names& names = *new Names;
      return names;
   }

   uint32_t number( Mox::StringView name ) {
      auto found = numbers_.find( name );
      if ( found != numbers_.end() ) return found->second;
      names_.push_back( kept_.emplace_back( name ) );
      return numbers_
         .emplace( names_.back(), static_cast<uint32_t>( names_.size() - 1 ) )
         .first->second;
   }

   Mox::StringView name( uint32_t number ) const { return names_[number]; }

 private:
   Names() { number( "" ); }

   std::deque<Mox::String> kept_;  // elements keep their addresses
   // Of kept_, found faster there: every comparison asks for two.
   std::vector<Mox::StringView> names_;
   std::unordered_map<Mox::StringView, uint32_t> numbers_;
};

}

IntfId::IntfId( Mox::StringView name ) {
   if ( name.size() > maxLength ) {
      throw Mox::RangeError( "IntfId::bytes > IntfId::maxLength not allowed" );
   }
   if ( name.find( '\0' ) != Mox::StringView::npos ) {
      throw Mox::RangeError( "IntfId::bytes with a NUL not allowed" );
   }
   index_ = Names::instance().number( name );
}

Mox::StringView IntfId::name() const {
   return Names::instance().name( index_ );
}

Mox::String valueToStrep( const IntfId& intf ) {
   return Mox::valueToStrep( Mox::String( intf.name() ) );
}

void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end, IntfId& out ) {
   Mox::String name;
   Mox::sequenceToValue( begin, end, name );
   out = IntfId( name );
}

std::ostream& operator<<( std::ostream& stream, const IntfId& intf ) {
   return stream << valueToStrep( intf );
}

}
