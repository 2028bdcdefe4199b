#include "apps/json/FieldJson.h"

#include "apps/json/RouteMembers.h"
#include "apps/json/YangData.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Routing::Pim::SparseMode::AssertMetric;

namespace {

struct Row {
   Mox::StringView field;
   const char* name;
   const char* prefix = "";  // of the field's enumerators
};

// Other fields' names follow from the field by rule.
constexpr Row kRows[] = { { "joinState", "join-state" },
                          { "rptState", "rpt-state", "rpt" },
                          { "upJoinState", "upstream-join-state", "up" },
                          { "assertWinnerMetric", "assert-winner" },
                          { "pimIntf", "pim-interface" },
                          { "addr", "address" },
                          { "iAmDr", "designated-router" },
                          { "wc", "wc-route" },
                          { "wcIntf", "wc-interface" },
                          { "umh", "upstream-record" },
                          { "umhFrr", "fast-reroute-upstream-record" },
                          { "rpfFrr", "fast-reroute-rpf" } };

const Row* rowOf( const std::string& field ) {
   for ( const Row& row : kRows ) {
      if ( row.field == field ) return &row;
   }
   return nullptr;
}

bool isEnumerator( const std::string& field ) {
   return field.ends_with( "State" );
}

}

std::string fieldName( const std::string& field ) {
   const Row* row = rowOf( field );
   return row != nullptr ? row->name : yangName( field );
}

Json fieldValue( const std::string& field, const std::string& value ) {
   if ( value == "true" || value == "false" ) return value == "true";
   if ( value.starts_with( "Value('Routing::Pim::Rpf'" ) )
      return pathJson( Mox::stringToValue<Routing::Pim::Rpf>( value ) );
   if ( value.starts_with( "Value('Routing::Pim::IntfAddr'" ) )
      return Vantu::valueToStrep(
         Mox::stringToValue<Routing::Pim::IntfAddr>( value ).address );
   if ( value == valueToStrep( AssertMetric() ) ) return "infinite";
   if ( !isEnumerator( field ) ) return value;
   const Row* row = rowOf( field );
   const std::string name = yangName( value, row != nullptr ? row->prefix : "" );
   return name == "joined" && field == "joinState" ? "join" : name;
}

}
