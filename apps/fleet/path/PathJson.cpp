#include <nlohmann/json.hpp>

#include "apps/fleet/path/Path.h"
#include "apps/mirror/Events.h"

namespace Fleet {

namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr const char* kTrees[] = { "none", "source", "shared" };
constexpr const char* kRoots[] = { "attached", "rp", "registers", "asked", "cut" };

// Where an edge begins or ends.
OrderedJson endJson( const PathAnswer& answer, size_t node,
                     const std::string& interface ) {
   OrderedJson json;
   json["node"] = node;
   json["router"] = answer.nodes[node].router;
   if ( !interface.empty() ) json["interface"] = interface;
   return json;
}

void addJudgement( OrderedJson& json, const Judgement& judgement ) {
   json["verdict"] = verdictText( judgement.verdict );
   if ( judgement ) json["reason"] = judgement.reason;
}

OrderedJson nodeJson( const PathAnswer::Node& node ) {
   OrderedJson json;
   json["router"] = node.router;
   if ( !node.interface.empty() ) json["interface"] = node.interface;
   json["entry"] = kTrees[node.tree];
   if ( node.asOf != 0 ) json["as-of"] = Show::utcText( node.asOf );
   if ( node.stale ) json["stale"] = true;
   if ( node.agentGone ) json["writer"] = "gone";
   return json;
}

OrderedJson edgeJson( const PathAnswer& answer, const PathAnswer::Edge& edge ) {
   OrderedJson json;
   json["from"] = endJson( answer, edge.from, edge.fromInterface );
   json["to"] = endJson( answer, edge.to, edge.toInterface );
   json["registers"] = edge.registers;
   json["forwarding"] = edge.forwards;
   addJudgement( json, edge.judgement );
   OrderedJson rates = OrderedJson::object();
   if ( edge.fromBits ) rates["from"] = *edge.fromBits;
   if ( edge.toBits ) rates["to"] = *edge.toBits;
   if ( !rates.empty() ) json["rates"] = std::move( rates );
   return json;
}

}

OrderedJson pathJson( const PathAnswer& answer ) {
   OrderedJson json;
   const RouteKey& stream = answer.stream;
   json["vrf"] = answer.scope.vrf;
   json["source"] =
      stream.source.isUnspecified() ? "*" : Vantu::valueToStrep( stream.source );
   json["group"] = Vantu::valueToStrep( stream.group );
   if ( answer.receiver )
      json["receiver"] = Vantu::valueToStrep( *answer.receiver );
   for ( const char* list : { "roots", "nodes", "edges", "receivers", "problems" } )
      json[list] = OrderedJson::array();
   for ( const auto& each : answer.roots ) {
      OrderedJson root = endJson( answer, each.node, each.interface );
      root["kind"] = kRoots[each.kind];
      addJudgement( root, each.judgement );
      json["roots"].push_back( std::move( root ) );
   }
   for ( const auto& each : answer.nodes )
      json["nodes"].push_back( nodeJson( each ) );
   for ( const auto& each : answer.edges )
      json["edges"].push_back( edgeJson( answer, each ) );
   for ( const auto& each : answer.receivers ) {
      OrderedJson receiver = endJson( answer, each.node, each.interface );
      receiver["known"] = each.known;
      receiver["member"] = each.member;
      receiver["designated-router"] = each.dr;
      addJudgement( receiver, each.judgement );
      json["receivers"].push_back( std::move( receiver ) );
   }
   for ( const auto& each : answer.problems )
      json["problems"].push_back(
         { { "router", each.router }, { "text", each.text } } );
   json["verdict"] = verdictText( answer.judgement.verdict );
   json["text"] = answer.verdict;
   return json;
}

}
