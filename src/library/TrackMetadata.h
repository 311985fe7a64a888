#pragma once

#include "library/Track.h"
#include "tags/MusicMetadata.h"

// The eight editable tags of a track, copied as they stand (no trimming, no normalisation).
MusicMetadata musicMetadata(const Track& track);
