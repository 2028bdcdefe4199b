// A change as a line of text.
#pragma once

#include "apps/json/ChangeFeed.h"

namespace Show {

// A change's JSON line in words, without time and place: "update (S, G) eth2:
// forwarding no -> yes". Of any JSON it makes some text.
std::string changeWords( const nlohmann::ordered_json& line );

// The line without its newline. `time`: "2024-05-01T10:00:02.114Z".
std::string changeText( const Mirror& mirror, const Change& change,
                        const std::string& time );

}
