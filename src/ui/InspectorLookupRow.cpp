#include "ui/InspectorLookupRow.h"

#include "ui/InspectorModel.h"
#include "ui/TextStyles.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>

using TextStyles::Font;
using TextStyles::Tone;
using Kind = InspectorModel::Lookup::Kind;

namespace {

// A small indicator that runs while something is under way.
QProgressBar* busyIndicator(QWidget* parent) {
    auto* busy = new QProgressBar(parent);
    busy->setRange(0, 0);
    busy->setTextVisible(false);
    busy->setFixedSize(48, 8);
    return busy;
}

} // namespace

InspectorLookupRow::InspectorLookupRow(InspectorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    setObjectName(QStringLiteral("lookup"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(8);
    m_symbol = new QLabel(this);
    m_busy = busyIndicator(this);
    m_text = new QLabel(this);
    m_text->setObjectName(QStringLiteral("lookupText"));
    m_text->setWordWrap(true);
    TextStyles::apply(m_text, Font::Callout, Tone::Secondary);
    m_badge = new QLabel(this);
    m_badge->setObjectName(QStringLiteral("confidence"));
    m_badge->setToolTip(QStringLiteral("How confident the service is that this is the same recording. Low "
                                       "numbers mean the match may be a different song entirely."));
    m_useAll = new QPushButton(QStringLiteral("Use All"), this);
    m_useAll->setObjectName(QStringLiteral("useAll"));
    m_useAll->setAutoDefault(false);
    connect(m_useAll, &QPushButton::clicked, this, &InspectorLookupRow::confirmUseAll);
    row->addWidget(m_symbol);
    row->addWidget(m_busy);
    row->addWidget(m_text, 1);
    row->addWidget(m_badge);
    row->addWidget(m_useAll);

    connect(&model, &InspectorModel::lookupChanged, this, &InspectorLookupRow::refresh);
    connect(&model, &InspectorModel::draftChanged, this, &InspectorLookupRow::refresh);
    refresh();
}

void InspectorLookupRow::refresh() {
    const InspectorModel::Lookup& lookup = m_model.lookup();
    const int differing = m_model.differingFieldCount();
    QString symbol;
    Tone symbolTone = Tone::Secondary;
    QString text;
    switch (lookup.kind) {
    case Kind::Idle:
    case Kind::Loading:
        text = QStringLiteral("Checking online music services…");
        break;
    case Kind::Found:
        symbol = QStringLiteral("web-browser");
        text = lookupSummary(*lookup.remote, differing);
        break;
    case Kind::Failed:
        symbol = QStringLiteral("dialog-warning");
        symbolTone = Tone::Orange;
        text = lookup.message;
        break;
    case Kind::Offline:
        symbol = QStringLiteral("network-offline");
        text = QStringLiteral("No Internet music services available for metadata.");
        break;
    case Kind::NoMatch:
        symbol = QStringLiteral("dialog-question");
        text = QStringLiteral("No online match found for this track. Local metadata is shown.");
        break;
    }
    setVisible(lookup.kind != Kind::Idle);
    m_busy->setVisible(lookup.kind == Kind::Loading);
    m_symbol->setVisible(!symbol.isEmpty());
    if (!symbol.isEmpty())
        m_symbol->setPixmap(TextStyles::symbol(symbol, m_text->fontMetrics().height(),
                                               TextStyles::colour(this, symbolTone), devicePixelRatioF()));
    m_text->setText(text);

    const std::optional<QString> badge =
        lookup.remote ? confidenceBadge(lookup.remote->confidence) : std::nullopt;
    m_badge->setVisible(badge.has_value());
    if (badge) {
        m_badge->setText(*badge);
        TextStyles::apply(m_badge, Font::Caption,
                          lookup.remote->confidence < trustedConfidence ? Tone::Orange : Tone::Secondary);
    }
    m_useAll->setVisible(differing > 0);
}

void InspectorLookupRow::confirmUseAll() {
    const int differing = m_model.differingFieldCount();
    const RemoteMetadata& remote = *m_model.lookup().remote;
    auto* box = new QMessageBox(QMessageBox::Question, useAllTitle(remote, differing),
                                useAllTitle(remote, differing), QMessageBox::NoButton, window());
    box->setObjectName(QStringLiteral("useAllConfirmation"));
    box->setInformativeText(QStringLiteral("Nothing is written to the file until you press Save. Online "
                                           "matching is based on artist and title text, so it can "
                                           "occasionally identify the wrong recording."));
    QPushButton* replace = box->addButton(useAllButtonText(differing), QMessageBox::AcceptRole);
    box->addButton(QMessageBox::Cancel);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(replace, &QPushButton::clicked, &m_model, &InspectorModel::useAllSuggestions);
    box->open();
}
