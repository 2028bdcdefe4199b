// What the router sends, and its events, in the words of the language.
#pragma once

#include <functional>
#include <string>

#include "engine/Sender.h"
#include "published/Event.h"
#include "tests/scenario/Names.h"

namespace Scenario {

// "eth1 join *, join A, prune B rpt to N": what a message has by default is left out.
// `rpOf` gives a group's configured RP.
std::string sentText(
   const Router::Outgoing& message, const Names& names,
   const std::function<Vantu::IpGenAddr( const Vantu::IpGenAddr& )>& rpOf );

// "eth1 A joined join-expired"
std::string eventText( const Published::Event& event, const Names& names );

// The message as its receiver decodes it. Throws ScriptError if that is not possible.
Router::Outgoing throughTheWire( const Router::Outgoing& message );

}
