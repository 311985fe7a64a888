#include "library/LibraryLog.h"

Q_LOGGING_CATEGORY(lcLibrary, "orvelle.library")
