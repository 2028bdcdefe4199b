#include "apps/fleet/serve/Picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "apps/fleet/serve/Fold.h"
#include "apps/fleet/serve/Target.h"
#include "apps/fleet/serve/detail/SvgText.h"
#include "apps/mirror/Events.h"
#include "apps/show/text/Words.h"

namespace Fleet {

namespace {

// Of the picture's font, which the page's style sets: 12 pixels, all letters of a width.
constexpr double kLetter = 7.3, kLine = 17.0, kMargin = 10.0;
constexpr size_t kStep = 4;  // letters; rates change without moving all the boxes
constexpr size_t kReceivers = 4;  // lines of them in a box

std::string text( const IpGenAddr& address ) {
   return Vantu::valueToStrep( address );
}

// The page with the history of these routers, of the same stream.
std::string historyLink( const PathAnswer& answer, const std::string& routers ) {
   const RouteKey& stream = answer.stream;
   std::string link = fmt::format(
      "?vrf={}&source={}&group={}", targetText( answer.scope.vrf ),
      stream.source.isUnspecified() ? "*" : targetText( text( stream.source ) ),
      targetText( text( stream.group ) ) );
   if ( answer.receiver ) link += "&to=" + targetText( text( *answer.receiver ) );
   return link + "&history=" + targetText( routers );
}

std::string place( const PathAnswer& answer, size_t node,
                   const std::string& interface ) {
   const std::string& router = answer.nodes[node].router;
   return interface.empty() ? router : router + ' ' + interface;
}

std::string rootLine( const PathAnswer& answer, const PathAnswer::Root& root ) {
   using Root = PathAnswer::Root;
   if ( root.kind == Root::rp ) return "RP";
   if ( root.kind == Root::asked ) return "from here";
   if ( root.kind == Root::cut ) return "the way up ends";
   std::string line = "source on " + root.interface;
   if ( root.kind == Root::registers ) line += ", registers";
   return answer.stream.source.isUnspecified() ? "root" : line;
}

std::string receiverLine( const PathAnswer::Receiver& receiver ) {
   std::string line = receiver.interface + ' ';
   line += !receiver.known   ? "unknown receiver"
           : receiver.member ? "member"
                             : "no member";
   if ( receiver.known && receiver.dr ) line += ", DR";
   return line;
}

// What is old need not be so any more.
std::string breaksLine( const Judgement& judgement ) {
   const bool old = judgement.verdict == Verdict::stale;
   return std::string( old ? "in doubt: " : "BREAKS: " ) +
          verdictText( judgement.verdict );
}

const char* breaksKind( const Judgement& judgement ) {
   if ( !judgement ) return "";
   return judgement.verdict == Verdict::stale ? " doubtful" : " broken";
}

using Point = Layout::Point;

std::string curve( const std::vector<Point>& points ) {
   std::string path;
   for ( size_t i = 0; i < points.size(); ++i )
      path += fmt::format( "{}{:.1f} {:.1f}",
                           i == 0   ? "M"
                           : i == 1 ? "C"
                                    : " ",
                           points[i].x, points[i].y );
   return path;
}

// At the end of a curve, along its last direction.
std::string arrow( const std::vector<Point>& points ) {
   const Point tip = points.back(), before = points[points.size() - 2];
   const double length =
      std::max( std::hypot( tip.x - before.x, tip.y - before.y ), 1e-3 );
   const double x = ( tip.x - before.x ) / length,
                y = ( tip.y - before.y ) / length;
   const Point foot{ tip.x - 8 * x, tip.y - 8 * y };
   return fmt::format( "M{:.1f} {:.1f}L{:.1f} {:.1f}L{:.1f} {:.1f}Z", tip.x, tip.y,
                       foot.x - 4 * y, foot.y + 4 * x, foot.x + 4 * y,
                       foot.y - 4 * x );
}

}

std::string edgeRate( const PathAnswer::Edge& edge ) {
   const auto known = edge.fromBits ? edge.fromBits : edge.toBits;
   if ( !known ) return "";
   std::string rate = Show::bitsText( *known );
   if ( edge.fromBits && edge.toBits && Show::bitsText( *edge.toBits ) != rate )
      rate += ", " + Show::bitsText( *edge.toBits ) + " below";
   return rate;
}

std::string edgeSentence( const PathAnswer& answer, const PathAnswer::Edge& edge ) {
   std::string sentence =
      fmt::format( "{} {} to {}", place( answer, edge.from, edge.fromInterface ),
                   edgeWord( edge ), place( answer, edge.to, edge.toInterface ) );
   if ( const std::string rate = edgeRate( edge ); !rate.empty() )
      sentence += ", " + rate;
   if ( edge.judgement )
      sentence +=
         ". " + breaksLine( edge.judgement ) + ". " + edge.judgement.reason;
   return sentence;
}

Picture::Picture( const PathAnswer& answer, bool down, size_t most ) {
   graph_.down = down;
   heading_ = answer.verdict;
   const auto into = folded( answer, most );
   addRouters( answer, into );
   addEdges( answer, into );
}

void Picture::add( Box box ) {
   size_t width = 0;
   for ( std::string& line : box.lines ) {
      line = shortened( line );
      width = std::max( width, letters( line ) );
   }
   width = ( width + kStep - 1 ) / kStep * kStep;
   graph_.boxes.push_back(
      { kLetter * static_cast<double>( width ) + 2 * kMargin,
        kLine * static_cast<double>( box.lines.size() ) + kMargin } );
   boxes_.push_back( std::move( box ) );
}

void Picture::addRouters( const PathAnswer& answer,
                          const std::vector<size_t>& into ) {
   std::vector<Box> boxes( answer.nodes.size() );
   std::vector<size_t> hidden( answer.nodes.size() ), shown( answer.nodes.size() );
   const auto breaks = [&]( Box& box, const Judgement& judgement ) {
      if ( !judgement ) return;
      box.kind += breaksKind( judgement );
      box.lines.push_back( breaksLine( judgement ) );
      box.title = ". " + judgement.reason;
   };
   for ( size_t node = 0; node < boxes.size(); ++node ) {
      const auto& is = answer.nodes[node];
      Box& box = boxes[node];
      box.kind = "node";
      box.link = historyLink( answer, is.router );
      box.lines = { is.router };
      if ( !is.interface.empty() ) box.lines.push_back( "in " + is.interface );
      if ( is.stale ) box.lines.push_back( "stale" );
      if ( is.agentGone ) box.lines.push_back( "agent gone" );
      if ( ( is.stale || is.agentGone ) && is.asOf != 0 )
         box.lines.push_back( "as of " + Show::utcText( is.asOf ) );
      if ( is.stale || is.agentGone ) box.kind += " stale";
      if ( into[node] != node ) ++hidden[into[node]];
   }
   for ( const auto& root : answer.roots ) {
      boxes[root.node].lines.push_back( rootLine( answer, root ) );
      breaks( boxes[root.node], root.judgement );
   }
   for ( const auto& receiver : answer.receivers ) {
      Box& box = boxes[receiver.node];
      if ( ++shown[receiver.node] <= kReceivers || receiver.judgement )
         box.lines.push_back( receiverLine( receiver ) );
      breaks( box, receiver.judgement );
   }
   for ( Box& box : boxes ) {
      const auto node = static_cast<size_t>( &box - boxes.data() );
      if ( into[node] != node ) continue;
      if ( shown[node] > kReceivers )
         box.lines.push_back( fmt::format( "{} receivers", shown[node] ) );
      if ( hidden[node] != 0 ) {
         box.kind += " folded";
         box.lines.push_back( "+ " + Show::countText( hidden[node], "router" ) +
                              " below" );
      }
      std::string title = "Router";
      for ( const std::string& line : box.lines )
         title += ( &line == box.lines.data() ? " " : ", " ) + line;
      box.title = title + box.title;
      add( std::move( box ) );
   }
}

void Picture::addEdges( const PathAnswer& answer,
                        const std::vector<size_t>& into ) {
   std::vector<size_t> index( into.size() );
   size_t count = 0;
   for ( size_t node = 0; node < into.size(); ++node )
      if ( into[node] == node ) index[node] = count++;
   for ( const auto& edge : answer.edges ) {
      if ( into[edge.from] != edge.from || into[edge.to] != edge.to ) continue;
      Box box;
      box.kind = std::string( "edge" ) + breaksKind( edge.judgement );
      box.title = edgeSentence( answer, edge );
      box.link = historyLink( answer, answer.nodes[edge.from].router + ',' +
                                         answer.nodes[edge.to].router );
      box.lines = { edge.registers ? edgeWord( edge )
                                   : edge.fromInterface + ' ' + edgeWord( edge ) };
      if ( edge.judgement ) box.lines.push_back( breaksLine( edge.judgement ) );
      if ( const std::string rate = edgeRate( edge ); !rate.empty() )
         box.lines.push_back( rate );
      graph_.lines.emplace_back( index[edge.from], boxes_.size() );
      graph_.lines.emplace_back( boxes_.size(), index[edge.to] );
      add( std::move( box ) );
   }
}

// As the packets flow: so a keyboard goes from one to the next.
std::vector<size_t> Picture::inOrder( const Layout& layout ) const {
   std::vector<size_t> order( boxes_.size() );
   std::iota( order.begin(), order.end(), 0 );
   const auto along = [&]( size_t box ) {
      const Layout::Point& at = layout.boxes[box];
      return graph_.down ? std::pair( at.y, at.x ) : std::pair( at.x, at.y );
   };
   std::stable_sort( order.begin(), order.end(), [&]( size_t a, size_t b ) {
      return along( a ) < along( b );
   } );
   return order;
}

std::string Picture::svg( const Layout& layout ) const {
   std::string out = fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:.0f}\" "
      "height=\"{1:.0f}\" "
      "viewBox=\"-2 -2 {0:.0f} {1:.0f}\" role=\"group\" aria-label=\"{2}\" "
      "font-family=\"monospace\" font-size=\"12\" fill=\"currentColor\">\n",
      layout.size.width + 4, layout.size.height + 4, escaped( heading_ ) );
   // Lines first: boxes lie on them. A line belongs to the edge's own box.
   for ( size_t i = 0; i < graph_.lines.size(); ++i ) {
      const auto& points = layout.lines[i];
      if ( points.size() < 2 ) continue;
      const auto [from, to] = graph_.lines[i];
      const bool arrives = boxes_[from].kind.starts_with( "edge" );
      const std::string kind = boxes_[arrives ? from : to].kind.substr( 4 );
      out += fmt::format(
         "<path class=\"line{}\" d=\"{}\" fill=\"none\" "
         "stroke=\"currentColor\"/>\n",
         kind, curve( points ) );
      if ( arrives )
         out += fmt::format( "<path class=\"arrow{}\" d=\"{}\"/>\n", kind,
                             arrow( points ) );
   }
   for ( const size_t i : inOrder( layout ) ) {
      const Box& box = boxes_[i];
      const auto [width, height] = graph_.boxes[i];
      const double x = layout.boxes[i].x, top = layout.boxes[i].y - height / 2;
      out += fmt::format(
         "<a class=\"{}\" href=\"{}\" aria-label=\"{}\"><title>{}</title>"
         "<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{:.1f}\" "
         "rx=\"6\" "
         "fill=\"none\" stroke=\"currentColor\"/>",
         box.kind, escaped( box.link ), escaped( box.title ), escaped( box.title ),
         x - width / 2, top, width, height );
      for ( size_t line = 0; line < box.lines.size(); ++line )
         out += fmt::format(
            "<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">{}</text>", x,
            top + kMargin / 2 + kLine * ( static_cast<double>( line ) + 0.74 ),
            escaped( box.lines[line] ) );
      out += "</a>\n";
   }
   return out + "</svg>\n";
}

}
