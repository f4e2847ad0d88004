// Cleaning of event parameters: what an application passes is never thrown back. A bad name
// or value is dropped and the fact travels inside the event as error parameters: `_err` (an
// APMEventErrorCode), `_ev` (the offending name or value, trimmed) and `_el` (its length).
// The first error wins. Stateless; callable from any queue.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "kit/Value.h"
#include "measurement/events/APMEventNames.h"
#include "measurement/events/APMValue.h"

inline constexpr int kAPMDefaultMaxPublicEventParams = 25;

// The cleaned form of `parameters` for the event `eventName`. Names follow the public rules
// when `isPublicEvent`, the internal rules otherwise; values are converted to APMValue and
// checked (100 code points for a public event, 256 otherwise; `_ev` is trimmed instead of
// dropped). An array parameter must be `items` of a commerce event, holds at most 200
// dictionaries (more are cut, with `_err` 17), and each item is cleaned in turn with
// `isArrayItem` set: an item keeps only standard item parameters. At most
// `maxPublicEventParams` public parameters stay (with `_err` 5): the alphabetically first.
APMParameters APMCleanParameters(const kit::Dictionary& parameters, const std::string& eventName,
                                 bool isPublicEvent, bool isArrayItem = false,
                                 int maxPublicEventParams = kAPMDefaultMaxPublicEventParams);

// The error parameters that report `subject` failing with `error`: `_err`, `_ev` holding the
// subject cut to `limit` code points (see APMTrimmedString), and `_el` holding `length` when
// given, else the subject's length when it is longer than `limit`.
APMParameters APMErrorParameters(APMEventErrorCode error, const std::string& subject,
                                 std::size_t limit,
                                 std::optional<std::int64_t> length = std::nullopt);

// For a conversion (`_c`), `ad_impression` and `_ai`: a `value` parameter must be numeric
// (else removed, `_ev` "value", `_err` 18) and must come with a three-letter `currency` (else
// removed, `_ev` "currency", `_err` 19); either failure also removes `_c`.
void APMApplyValueRule(const std::string& eventName, APMParameters& parameters);

// Clears the event's conversion: removes `_c` and adds `_err` 10 unless `_err` is present.
void APMClearConversion(APMParameters& parameters);

// Adds `_si`, `_sc` and `_sn` from `screen` when the event has none of them and `screen` has
// `_si`. `_si` must be an integer and `_sc`, `_sn` strings of 1 to 100 code points ("Received
// invalid screen class", "Received invalid screen name"); otherwise nothing is added. Returns
// whether the parameters were added.
bool APMAddScreenParameters(APMParameters& parameters, const APMParameters& screen);

// An event origin as events accept it: a valid forwarded origin ("<origin>+gtm"), or, when
// it is not a forwarded one, a valid internal origin.
bool APMIsValidEventOrigin(const std::string& origin);
