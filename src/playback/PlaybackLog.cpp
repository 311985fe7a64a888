#include "playback/PlaybackLog.h"

Q_LOGGING_CATEGORY(lcPlayback, "orvelle.playback")
