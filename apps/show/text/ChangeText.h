// A change as a line of text.
#pragma once

#include "apps/json/ChangeFeed.h"

namespace Show {

// The line without its newline. `time`: "2024-05-01T10:00:02.114Z".
std::string changeText( const Mirror& mirror, const Change& change,
                        const std::string& time );

}
