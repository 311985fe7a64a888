#include "ui/UiLog.h"

Q_LOGGING_CATEGORY(lcUi, "orvelle.ui")
