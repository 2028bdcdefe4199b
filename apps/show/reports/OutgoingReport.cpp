#include "apps/show/reports/OutgoingReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/json/FieldJson.h"
#include "apps/json/RouteMembers.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Json = nlohmann::ordered_json;
using Sm::AssertMetric;
using Sm::Derivation;
using Sm::MacroInput;

namespace {

constexpr size_t kValueColumn = 34;

std::string line( const std::string& left, const std::string& value,
                  bool decides ) {
   return fmt::format( "{:<{}} {}{}\n", left, kValueColumn, value,
                       decides ? "   <- decides" : "" );
}

std::string yesNo( const Term& term ) {
   if ( !term.holds ) return "unknown";
   if ( !*term.holds ) return "no";
   return term.decides ? "YES" : "yes";
}

// "[S] 192.0.2.66 [100/20] beats ours [S] 192.0.2.2 [110/20]"
std::string lostText( const Mirror& mirror, const Term& term, const Intf& asked ) {
   const AssertMetric& winner = asked.assertInfo().assertWinnerMetric;
   std::string text = valueToStrep( winner );
   if ( std::string_view( term.macro ) != "lostAssertSg" )
      return text + "\tis the winner";
   AssertMetric ours = asked.sptAssertMetric();
   if ( !ours ) return text + "\tbeats ours, infinite: not joined upstream";
   text += "\tbeats ours ";
   if ( mirror.model->pimStatus() == nullptr )
      return text + fmt::format( "[S] [{}/{}]", ours.preference.value(),
                                 ours.metric.value );
   return text + valueToStrep( ours );
}

// Why members are served here, or not.
std::string memberText( const Mirror& mirror, const Term& term,
                        const Intf& asked ) {
   if ( !asked.localReceiverInclude() ) return "";
   const bool known = mirror.model->pimStatus() != nullptr;
   std::string text = "member";
   const AssertMetric& winner = asked.assertInfo().assertWinnerMetric;
   if ( asked.assertInfo().assertState == Sm::iAmAssertWinner )
      return text + ", assert won";
   if ( term.holds && !*term.holds && !winner.address.isUnspecified() )
      return text + ", served by " + Vantu::valueToStrep( winner.address );
   if ( !known ) return text + ", who is DR is not known";
   if ( asked.pimIntf() == nullptr ) return text + ", no PIM there";
   return text + ( asked.iAmDr() ? ", we are the DR" : ", another router is DR" );
}

std::string joinText( const Intf& asked, double now ) {
   std::string text = "last join " + agoText( asked.lastJoinReceived(), now );
   return asked.joinState() == Intf::prunePending ? "prune pending, " + text : text;
}

// The reason for the answer; may be empty.
std::string whyText( const Mirror& mirror, const Term& term, double now ) {
   const Intf* asked = term.asked;
   if ( asked == nullptr ) return "";
   const std::string_view macro = term.macro;
   if ( macro.starts_with( "include" ) ) return memberText( mirror, term, *asked );
   if ( !term.holds ) return "the assert winner is not known";
   if ( !*term.holds ) return "";
   if ( macro.starts_with( "joins" ) ) return joinText( *asked, now );
   if ( macro == "prunesSgRpt" )
      return "last prune " + agoText( asked->lastRptPruneReceived(), now );
   if ( macro == "excludeSg" ) return "source excluded by the members";
   return lostText( mirror, term, *asked );
}

std::string termLine( const Mirror& mirror, const Term& term, double now ) {
   std::string value = yesNo( term );
   std::string why = whyText( mirror, term, now );
   if ( !why.empty() ) value += ": " + why;
   return line( fmt::format( "    {}  {}", term.adds ? '+' : '-', term.name ),
                value, term.decides );
}

std::string_view functionOf( const Term& term ) {
   std::string_view name = term.name;
   return name.substr( 0, name.find( '(' ) );
}

// "lost_assert(*,G), (S,G,rpt)"
std::string namesText( const Term& first, const Term& second ) {
   std::string_view name = second.name;
   if ( functionOf( first ) == functionOf( second ) )
      name.remove_prefix( name.find( '(' ) );
   return fmt::format( "{}, {}", first.name, name );
}

bool alike( const Term& first, const Term& second ) {
   if ( first.adds != second.adds ) return false;
   return first.adds || functionOf( first ) == functionOf( second );
}

// Is the term a plain no, without a reason to print?
bool plainlyNo( const Mirror& mirror, const Term& term ) {
   return term.holds == false && whyText( mirror, term, 0 ).empty();
}

// A line for each term; two plain noes of one kind share a line.
std::string termsText( const Mirror& mirror, const Olist& list, double now ) {
   std::string text;
   for ( size_t i = 0; i < list.terms.size(); ++i ) {
      const Term& term = list.terms[i];
      const Term* next = i + 1 < list.terms.size() ? &list.terms[i + 1] : nullptr;
      if ( next != nullptr && alike( term, *next ) && plainlyNo( mirror, term ) &&
           plainlyNo( mirror, *next ) ) {
         text += line( fmt::format( "    {}  {}", term.adds ? '+' : '-',
                                    namesText( term, *next ) ),
                       "no", false );
         ++i;
      } else {
         text += termLine( mirror, term, now );
      }
   }
   return text;
}

std::string inText( const Olist& list ) {
   if ( !list.in ) return "unknown";
   if ( *list.in ) return "in";
   return list.decides ? "out: nothing asks for the traffic here" : "out";
}

std::string headline( const Mirror& mirror, const Intf& intf ) {
   return fmt::format( "{}\tvrf {}: {} {}\n", keyText( intf.parentRoute()->key() ),
                       vrfText( mirror ), nameText( intf.intfId() ),
                       intf.forward() ? "forwards" : "does NOT forward" );
}

std::string doubtText( const Mirror& mirror, const Intf& intf,
                       const Outgoing& outgoing ) {
   std::string text;
   if ( mirror.model->pimStatus() == nullptr )
      text += fmt::format( "Address and DR role of {} are unknown: {}.\n",
                           nameText( intf.intfId() ), noInterfacesText( mirror ) );
   if ( outgoing.forwards && *outgoing.forwards != intf.forward() )
      text += fmt::format( "By these terms it would {}: see pimsm-show check.\n",
                           *outgoing.forwards ? "forward" : "not forward" );
   return text;
}

void collectFields( const Derivation& derivation, std::vector<MacroInput>& fields,
                    bool interfacesKnown ) {
   for ( const MacroInput& input : derivation.inputs ) {
      if ( !interfacesKnown && input.field == "pimIntf" ) continue;
      if ( std::find( fields.begin(), fields.end(), input ) == fields.end() )
         fields.push_back( input );
   }
   for ( const auto& step : derivation.steps ) {
      for ( const Derivation& from : step.from )
         collectFields( from, fields, interfacesKnown );
   }
}

Json fieldsJson( const Mirror& mirror, const Term& term ) {
   Json list = Json::array();
   if ( term.asked == nullptr ) return list;
   std::vector<MacroInput> fields;
   collectFields( derive( *term.asked, term.macro ), fields,
                  mirror.model->pimStatus() != nullptr );
   for ( const MacroInput& field : fields ) {
      Json json;
      if ( field.route != Routing::Pim::RouteKey() )
         json["route"] = keyText( field.route );
      if ( !field.intfId.empty() ) json["interface"] = field.intfId.name();
      json["field"] = fieldName( field.field );
      json["value"] = fieldValue( field.field, field.value );
      list.push_back( std::move( json ) );
   }
   return list;
}

Json termJson( const Mirror& mirror, const Term& term ) {
   Json json;
   json["term"] = term.name;
   json["adds"] = term.adds;
   if ( term.holds ) json["value"] = *term.holds;
   if ( term.decides ) json["decides"] = true;
   Json fields = fieldsJson( mirror, term );
   if ( !fields.empty() ) json["fields"] = std::move( fields );
   return json;
}

}

std::string turnText( const Mirror& mirror, const Intf& intf,
                      const Outgoing& outgoing, const char* between ) {
   const std::vector<std::string> turns = turnsOf( mirror, intf, outgoing );
   if ( turns.empty() ) return "";
   return fmt::format( "Would {}forward if {}.\n", *outgoing.forwards ? "not " : "",
                       fmt::join( turns, between ) );
}

std::string outgoingText( const Mirror& mirror, const Intf& intf, double now ) {
   const Outgoing outgoing = outgoingOf( mirror, intf );
   std::string text = headline( mirror, intf );
   for ( const Olist& list : outgoing.olists ) {
      text +=
         line( fmt::format( "  {}", list.name ), inText( list ), list.decides );
      text += termsText( mirror, list, now );
   }
   if ( outgoing.incoming )
      text += line( "  incoming interface",
                    "YES: nothing goes out where it comes in", true );
   return text + turnText( mirror, intf, outgoing, ",\n   or if " ) +
          doubtText( mirror, intf, outgoing );
}

Json outgoingJson( const Mirror& mirror, const Intf& intf ) {
   const Outgoing outgoing = outgoingOf( mirror, intf );
   Json json = keyJson( intf.parentRoute()->key() );
   json["interface"] = intf.intfId().name();
   json["forwarding"] = intf.forward();
   json["incoming"] = outgoing.incoming;
   if ( outgoing.forwards ) json["would-forward"] = *outgoing.forwards;
   for ( const Olist& list : outgoing.olists ) {
      Json& entry = json["outgoing-list"].emplace_back( Json::object() );
      entry["name"] = list.name;
      if ( list.in ) entry["in"] = *list.in;
      if ( list.decides ) entry["decides"] = true;
      for ( const Term& term : list.terms )
         entry["terms"].push_back( termJson( mirror, term ) );
   }
   for ( const std::string& turn : turnsOf( mirror, intf, outgoing ) )
      json["would-change-if"].push_back( turn );
   return json;
}

}
