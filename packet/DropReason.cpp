#include "packet/DropReason.h"

namespace Router {
namespace {

struct Row {
   Mox::StringView name;
   Mox::StringView text;
};

#define AGENT_DROP_ROW( name, text ) { #name, text },
constexpr Row kRows[] = { AGENT_DROP_REASONS( AGENT_DROP_ROW ) };
#undef AGENT_DROP_ROW

}

Mox::StringView dropName( DropReason reason ) {
   return kRows[reason].name;
}

Mox::StringView dropText( DropReason reason ) {
   return kRows[reason].text;
}

}
