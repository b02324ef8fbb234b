// Names of the SDK's key match types. Every source area carries the map, built at load time; no
// operation consults it, a debugger does.
#pragma once

#include <map>
#include <string>

#include "jxsdk/rt.h"

namespace PartnerLib {
namespace {

// NOLINTNEXTLINE(misc-definitions-in-headers): one for each source area, as said above
[[maybe_unused]] const std::map<jx_rt_key_match_type_t, std::string> keyMatchTypeNames = {
    {JX_RT_MATCH_INVALID, "INVALID"}, {JX_RT_MATCH_EXACT, "EXACT"},
    {JX_RT_MATCH_TERNARY, "TERNARY"}, {JX_RT_MATCH_RANGE, "RANGE"},
    {JX_RT_MATCH_LPM, "LPM"},         {JX_RT_MATCH_OPTIONAL, "OPTIONAL"},
};

}  // namespace
}  // namespace PartnerLib
