#include "tags/TagsLog.h"

Q_LOGGING_CATEGORY(lcTags, "orvelle.tags")
