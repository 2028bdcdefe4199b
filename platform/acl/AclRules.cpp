#include "platform/acl/AclRules.h"

#include <fmt/format.h>

#include <algorithm>

namespace Acl {
namespace {

using Rules = std::vector<AclRule>;

[[noreturn]] void refuse( const AclRule& rule, const char* why ) {
   throw Mox::RangeError(
      fmt::format( "access list rule {}: {}", rule.sequence, why ) );
}

}

// The record's printer and parser find these by argument-dependent look-up.
static Mox::String valueToStrep( const Rules& rules ) {
   Mox::String out = "[";
   for ( const AclRule& rule : rules ) {
      if ( out.size() > 1 ) out += ", ";
      out += valueToStrep( rule );
   }
   return out + "]";
}

static void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                             Rules& out ) {
   Mox::expectLiteral( begin, end, "[" );
   while ( !Mox::acceptLiteral( begin, end, "]" ) ) {
      if ( !out.empty() ) Mox::expectLiteral( begin, end, ", " );
      sequenceToValue( begin, end, out.emplace_back() );
   }
}

AclRules::AclRules( AclType type, Rules rules )
   : type_( type ), rules_( std::move( rules ) ) {
   std::stable_sort( rules_.begin(), rules_.end(),
                     []( const AclRule& a, const AclRule& b ) {
                        return a.sequence < b.sequence;
                     } );
   Vantu::IpGenPrefix first;
   for ( size_t i = 0; i < rules_.size(); ++i ) {
      const AclRule& rule = rules_[i];
      if ( i > 0 && rules_[i - 1].sequence == rule.sequence ) {
         refuse( rule, "sequence number given twice" );
      }
      if ( type == standard && !rule.destination.isNone() ) {
         refuse( rule, "destination in a standard list" );
      }
      for ( const auto& prefix : { rule.source, rule.destination } ) {
         if ( prefix.isNone() ) continue;
         if ( first.isNone() ) first = prefix;
         if ( prefix.family() != first.family() ) {
            refuse( rule, "IPv4 and IPv6 in one list" );
         }
      }
   }
}

Mox::String valueToStrep( const AclRules& rules ) {
   Mox::RecordPrinter printer( "Acl::AclRules" );
   printer.field( "type", rules.type() );
   printer.field( "rules", rules.rules() );
   return printer.text();
}

void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end, AclRules& out ) {
   AclType type = standard;
   Rules rules;
   Mox::RecordParser parser( begin, end, "Acl::AclRules" );
   parser.field( "type", type );
   parser.field( "rules", rules );
   parser.finish();
   out = AclRules( type, std::move( rules ) );
}

}
