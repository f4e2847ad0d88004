// How one waiting bundle becomes its part of an upload batch.
#pragma once

#include "measurement/proto/APMPB.h"

// Serialises `bundle` as it is sent. With `checksum`, tag 47 first leaves the bundle and then
// holds apm_64LSBMD5 of the bundle so serialised, and `out` is the bundle with it; the bundle is
// written once, the checksum's bytes put where a whole write would place them. Without, the
// bundle is written as it stands. False, with `error` filled, when it cannot be written. A
// bundle too large for the stream limit goes without its checksum, the refusal logged.
bool APMEncodeBundleForUpload(APMPBMeasurementBundle& bundle, bool checksum, kit::Data* out,
                              platform::Error* error);
