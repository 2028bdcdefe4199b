#include <fmt/format.h>

#include <algorithm>

#include "apps/fleet/path/Path.h"
#include "apps/fleet/path/detail/View.h"
#include "apps/mirror/Events.h"
#include "apps/program/Printable.h"
#include "apps/show/text/Words.h"

namespace Fleet {

namespace {

using Programs::printable;

std::string bitsText( const std::optional<double>& rate ) {
   return rate ? Show::bitsText( *rate ) : "unknown";
}

std::string faultText( const Judgement& judgement ) {
   if ( !judgement ) return {};
   return fmt::format( "BREAKS: {}, {}", verdictText( judgement.verdict ),
                       judgement.reason );
}

// The tree's lines from its roots down, each edge and receiver once.
class Lines {
 public:
   explicit Lines( const PathAnswer& answer ) : answer_( answer ) {
      below_.resize( answer.nodes.size() );
      receivers_.resize( answer.nodes.size() );
      seen_.resize( answer.nodes.size() );
      for ( const auto& each : answer.edges ) {
         below_[each.from].push_back( &each );
         router_ = std::max( router_, router( each.from ).size() );
         interface_ = std::max( interface_, fromText( each ).size() );
         to_ = std::max( to_, toText( each ).size() );
         word_ = std::max( word_, std::string( edgeWord( each ) ).size() );
      }
      for ( const auto& each : answer.receivers )
         receivers_[each.node].push_back( &each );
   }

   std::string text() {
      for ( const auto& root : answer_.roots ) {
         if ( seen_[root.node] ) continue;
         out_ += rootText( root ) + '\n';
         descend( root.node );
      }
      return std::move( out_ );
   }

 private:
   std::string router( size_t node ) const {
      return printable( answer_.nodes[node].router );
   }

   static std::string fromText( const PathAnswer::Edge& edge ) {
      return edge.registers ? "register" : printable( edge.fromInterface );
   }
   std::string toText( const PathAnswer::Edge& edge ) const {
      return edge.registers
                ? router( edge.to )
                : router( edge.to ) + ' ' + printable( edge.toInterface );
   }
   std::string noteText( size_t node ) const {
      const auto& is = answer_.nodes[node];
      std::string note;
      if ( is.stale ) note += ", stale";
      if ( is.agentGone ) note += ", agent gone";
      if ( !note.empty() && is.asOf != 0 )
         note += ", as of " + Show::utcText( is.asOf );
      return note;
   }

   std::string rootText( const PathAnswer::Root& root ) const {
      const std::string at = router( root.node );
      const std::string source = "source " + Fleet::text( answer_.stream.source );
      std::string line;
      switch ( root.kind ) {
         case PathAnswer::Root::attached:
            line =
               fmt::format( "{} on {} {} (attached{})", source, at,
                            printable( root.interface ), noteText( root.node ) );
            break;
         case PathAnswer::Root::registers:
            line =
               fmt::format( "{} on {} {} (registers{})", source, at,
                            printable( root.interface ), noteText( root.node ) );
            break;
         case PathAnswer::Root::rp:
            line = "RP " + at + noteText( root.node );
            break;
         default:
            line = "from " + at + noteText( root.node );
      }
      const std::string fault = faultText( root.judgement );
      return fault.empty() ? line : line + "   " + fault;
   }

   std::string receiverText( const PathAnswer::Receiver& receiver ) const {
      const std::string at =
         router( receiver.node ) + ' ' + printable( receiver.interface );
      std::string line = "unknown receiver on " + at;
      if ( receiver.known ) {
         const std::string who = answer_.receiver
                                    ? "receiver " + Fleet::text( *answer_.receiver )
                                    : "receiver";
         line = fmt::format( "{} on {} ({}{}{})", who, at,
                             receiver.member ? "member" : "no member known",
                             receiver.dr ? ", DR" : "", noteText( receiver.node ) );
      }
      const std::string fault = faultText( receiver.judgement );
      return fault.empty() ? line : line + "   " + fault;
   }

   std::string edgeText( const PathAnswer::Edge& edge ) const {
      std::string tail = faultText( edge.judgement );
      if ( tail.empty() && ( edge.fromBits || edge.toBits ) )
         tail = bitsText( edge.fromBits ) + ", " + bitsText( edge.toBits );
      std::string line =
         fmt::format( "{:<{}}  {:<{}}  {:<{}}  -> {:<{}}   {}", router( edge.from ),
                      router_, fromText( edge ), interface_, edgeWord( edge ),
                      word_, toText( edge ), to_, tail + noteText( edge.to ) );
      line.erase( line.find_last_not_of( ' ' ) + 1 );
      return line;
   }

   // Without recursion: a chain may be long.
   void descend( size_t root ) {
      struct Todo {
         const PathAnswer::Edge* edge;
         size_t node, depth;
      };
      std::vector<Todo> todo{ { nullptr, root, 0 } };
      while ( !todo.empty() ) {
         const Todo next = todo.back();
         todo.pop_back();
         const std::string indent( 2 * next.depth, ' ' );
         if ( next.edge != nullptr )
            out_ += indent + "  " + edgeText( *next.edge ) + '\n';
         if ( seen_[next.node] ) continue;
         seen_[next.node] = true;
         const auto& below = below_[next.node];
         const auto& ends = receivers_[next.node];
         const size_t depth =
            next.depth + ( below.size() + ends.size() > 1 ? 1 : 0 );
         for ( const auto* each : ends )
            out_ += std::string( depth == 0 ? 0 : 2 * depth + 2, ' ' ) +
                    receiverText( *each ) + '\n';
         for ( auto each = below.rbegin(); each != below.rend(); ++each )
            todo.push_back( { *each, ( *each )->to, depth } );
      }
   }

   const PathAnswer& answer_;
   std::vector<std::vector<const PathAnswer::Edge*>> below_;
   std::vector<std::vector<const PathAnswer::Receiver*>> receivers_;
   std::vector<bool> seen_;
   size_t router_ = 0, interface_ = 0, to_ = 0, word_ = 0;
   std::string out_;
};

}

const char* edgeWord( const PathAnswer::Edge& edge ) {
   if ( edge.registers ) return "registers";
   if ( edge.forwards ) return "forwards";
   // It need not, if the packets come in there themselves.
   return edge.judgement ? "does NOT forward" : "on the link";
}

std::string pathText( const PathAnswer& answer ) {
   std::string out = answer.verdict + '\n' + Lines( answer ).text();
   for ( const Problem& each : answer.problems )
      out += fmt::format( "{}: unreadable: {}\n", printable( each.router ),
                          printable( each.text ) );
   return out;
}

}
