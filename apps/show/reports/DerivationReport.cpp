#include "apps/show/reports/DerivationReport.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/json/FieldJson.h"
#include "apps/show/text/Words.h"
#include "model/Derivation.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Json = nlohmann::ordered_json;
using Routing::Pim::RouteKey;
using Sm::Derivation;
using Sm::MacroFlip;
using Sm::MacroInput;
using Sm::MacroStep;

namespace {

constexpr size_t kValueColumn = 58;

struct Found {
   Derivation derivation;
   std::vector<MacroFlip> flips;
};

Sm::MacroArguments argumentsOf( const Question& question,
                                Sm::IntfCollection& failover ) {
   bool received = question.macro.starts_with( "is" ) &&
                   question.macro.find( "Assert" ) != std::string::npos;
   if ( received && !question.received )
      throw Mox::RangeError( question.macro + " needs --received METRIC" );
   if ( question.macro == "joinDesiredSgFastFailover" && question.failover.empty() )
      throw Mox::RangeError( question.macro + " needs --failover INTERFACES" );
   for ( Vantu::IntfId intfId : question.failover ) failover.intfIs( intfId );
   Sm::MacroArguments arguments;
   arguments.fastFailoverIntfs = &failover;
   if ( question.received ) arguments.received = *question.received;
   return arguments;
}

// A route's macro takes no interface, an interface's macro needs one.
void checkSubject( const std::string& macro, bool ofIntf ) {
   const auto& others = ofIntf ? Sm::routeMacroNames() : Sm::intfMacroNames();
   if ( std::find( others.begin(), others.end(), macro ) == others.end() ) return;
   throw Mox::RangeError( macro + ( ofIntf
                                       ? " is of a route: name no interface"
                                       : " is of an interface: name one, too" ) );
}

Found answer( const Mirror& mirror, const Question& question ) {
   const Route& route = *std::as_const( *mirror.model ).route( question.route );
   bool ofIntf = !question.intfId.empty();
   const std::string& macro = question.macro;
   checkSubject( macro, ofIntf );
   Mox::Ptr<Sm::IntfCollection> failover = Sm::intfCollectionFactory();
   Sm::MacroArguments arguments = argumentsOf( question, *failover );
   if ( !ofIntf )
      return { derive( route, macro, arguments ),
               flipsOf( route, macro, arguments ) };
   const Intf& intf = *route.routeIntf( question.intfId );
   return { derive( intf, macro, arguments ), flipsOf( intf, macro, arguments ) };
}

// The value in plain words; in the field's text form where there are none.
std::string valueText( const std::string& value ) {
   using Sm::AssertMetric;
   if ( value == "true" ) return "yes";
   if ( value == "false" ) return "no";
   if ( value == valueToStrep( AssertMetric() ) ) return "none";
   if ( value.starts_with( "Value('Routing::Pim::Rpf'" ) )
      return rpfText( Mox::stringToValue<Rpf>( value ), false );
   if ( value.starts_with( "Value('Routing::Pim::IntfAddr'" ) )
      return Vantu::valueToStrep(
         Mox::stringToValue<Routing::Pim::IntfAddr>( value ).address );
   return value;
}

std::string aboutText( const RouteKey& route, Vantu::IntfId intfId ) {
   if ( route == RouteKey() ) return nameText( intfId );
   std::string out = keyText( route );
   if ( !intfId.empty() ) out += ' ' + nameText( intfId );
   return out;
}

// "vrf default ipv4, agent running, (S, G): joinDesiredSg is yes"
std::string headline( const Mirror& mirror, const Derivation& derivation ) {
   return fmt::format( "{}, agent {}, {}: {} is {}\n", mirrorText( mirror ),
                       mirror.writerStory(),
                       aboutText( derivation.route, derivation.intfId ),
                       derivation.macro, valueText( derivation.value ) );
}

// A rule's last step has no condition, nor has a rule that only reads fields.
std::string stepText( const MacroStep& step ) {
   if ( step.condition.empty() ) return step.outcome.empty() ? "" : step.outcome;
   return fmt::format( "{} {} {}", valueText( step.outcome ),
                       step.wanted ? "if" : "unless", step.condition );
}

// Names the record of a step that is about another record than its rule.
std::string ofText( const Derivation& derivation, const MacroStep& step ) {
   if ( step.from.size() != 1 || step.from[0].intfId == derivation.intfId )
      return "";
   return " of " + nameText( step.from[0].intfId );
}

void line( std::string& out, size_t indent, const std::string& text,
           const std::string& value, bool decides ) {
   std::string left = std::string( indent, ' ' ) + text;
   out += fmt::format( "{:<{}}  {}{}\n", left, kValueColumn, value,
                       decides ? "   <- decides" : "" );
}

void addInputs( std::string& out, const Derivation& derivation, size_t indent ) {
   for ( const MacroInput& input : derivation.inputs ) {
      line( out, indent,
            input.field + " of " + aboutText( input.route, input.intfId ),
            valueText( input.value ), false );
   }
}

bool onlyFacts( const Derivation& derivation ) {
   return derivation.steps.size() == 1 && derivation.steps[0].outcome.empty();
}

bool readsItself( const Derivation& derivation ) {
   return onlyFacts( derivation ) && derivation.inputs.size() == 1 &&
          derivation.inputs[0].field == derivation.macro;
}

void addRule( std::string& out, const Derivation& derivation, bool all,
              size_t indent );

void addTerm( std::string& out, const Derivation& derivation, bool all,
              size_t indent ) {
   // A fact of a single field is told by that field.
   if ( readsItself( derivation ) ) return addInputs( out, derivation, indent );
   line(
      out, indent,
      derivation.macro + " of " + aboutText( derivation.route, derivation.intfId ),
      valueText( derivation.value ), false );
   addRule( out, derivation, all, indent + 2 );
}

void addRule( std::string& out, const Derivation& derivation, bool all,
              size_t indent ) {
   addInputs( out, derivation, indent );
   for ( const MacroStep& step : derivation.steps ) {
      bool fact = onlyFacts( derivation );
      if ( !fact ) {
         std::string value = step.condition.empty() ? step.value
                             : step.holds           ? "true"
                                                    : "false";
         line( out, indent, stepText( step ) + ofText( derivation, step ),
               valueText( value ), step.decides );
      }
      if ( !all && !step.decides ) continue;
      for ( const Derivation& term : step.from )
         addTerm( out, term, all, fact ? indent : indent + 2 );
   }
}

std::string flipText( const MacroFlip& flip ) {
   return fmt::format( "  {} of {}: {}\tinstead of {}\n", flip.input.field,
                       aboutText( flip.input.route, flip.input.intfId ),
                       valueText( flip.value ), valueText( flip.input.value ) );
}

void collectUnknown( const Derivation& derivation,
                     std::vector<Vantu::IntfId>& unknown ) {
   for ( const MacroInput& input : derivation.inputs ) {
      if ( input.field != "pimIntf" || input.value != "false" ) continue;
      if ( std::find( unknown.begin(), unknown.end(), input.intfId ) ==
           unknown.end() )
         unknown.push_back( input.intfId );
   }
   for ( const MacroStep& step : derivation.steps ) {
      for ( const Derivation& term : step.from ) collectUnknown( term, unknown );
   }
}

// The interfaces whose address and DR role are unknown here.
std::vector<Vantu::IntfId> unknownOf( const Mirror& mirror,
                                      const Derivation& derivation ) {
   std::vector<Vantu::IntfId> unknown;
   if ( mirror.model->pimStatus() == nullptr )
      collectUnknown( derivation, unknown );
   return unknown;
}

Json inputJson( const MacroInput& input ) {
   Json json;
   json["of"] = aboutText( input.route, input.intfId );
   json["field"] = input.field;
   json["value"] = fieldValue( input.field, input.value );
   return json;
}

Json derivationJson( const Derivation& derivation ) {
   Json json;
   json["macro"] = derivation.macro;
   json["of"] = aboutText( derivation.route, derivation.intfId );
   json["value"] = derivation.value;
   for ( const MacroInput& input : derivation.inputs )
      json["inputs"].push_back( inputJson( input ) );
   for ( const MacroStep& step : derivation.steps ) {
      Json& entry = json["steps"].emplace_back( Json::object() );
      if ( !step.condition.empty() ) {
         entry[step.wanted ? "if" : "unless"] = step.condition;
         entry["holds"] = step.holds;
      }
      if ( !step.outcome.empty() ) entry["outcome"] = step.outcome;
      if ( !step.value.empty() ) entry["value"] = step.value;
      entry["decides"] = step.decides;
      for ( const Derivation& term : step.from )
         entry["terms"].push_back( derivationJson( term ) );
   }
   return json;
}

}

std::string derivationText( const Mirror& mirror, const Question& question ) {
   Found found = answer( mirror, question );
   const Derivation& derivation = found.derivation;
   std::string out = headline( mirror, derivation );
   addRule( out, derivation, question.all, 2 );
   out += found.flips.empty() ? "No single change would give another answer.\n"
                              : "Another answer would come of one of these:\n";
   for ( const MacroFlip& flip : found.flips ) out += flipText( flip );
   for ( Vantu::IntfId intfId : unknownOf( mirror, derivation ) ) {
      out += fmt::format(
         "Address and DR role of {} are unknown here: it counts as DR without "
         "address.\n",
         nameText( intfId ) );
   }
   return out;
}

Json derivationJson( const Mirror& mirror, const Question& question ) {
   Found found = answer( mirror, question );
   Json json = derivationJson( found.derivation );
   for ( const MacroFlip& flip : found.flips ) {
      Json entry = inputJson( flip.input );
      entry["instead"] = fieldValue( flip.input.field, flip.value );
      entry["answer"] = flip.answer;
      json["flips"].push_back( std::move( entry ) );
   }
   for ( Vantu::IntfId intfId : unknownOf( mirror, found.derivation ) )
      json["unknown"].push_back( intfId.name() );
   return json;
}

}
