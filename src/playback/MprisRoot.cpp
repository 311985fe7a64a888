#include "playback/MprisRoot.h"

MprisRoot::MprisRoot(QObject* parent, std::function<void()> onRaise, std::function<void()> onQuit)
    : QDBusAbstractAdaptor(parent)
    , m_onRaise(std::move(onRaise))
    , m_onQuit(std::move(onQuit)) {}

void MprisRoot::Raise() {
    m_onRaise();
}

void MprisRoot::Quit() {
    m_onQuit();
}
