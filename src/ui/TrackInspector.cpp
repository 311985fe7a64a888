#include "ui/TrackInspector.h"

#include "ui/Divider.h"
#include "ui/InspectorFieldRow.h"
#include "ui/InspectorHeader.h"
#include "ui/InspectorLookupRow.h"
#include "ui/InspectorModel.h"
#include "ui/TextStyles.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

using TextStyles::Font;
using TextStyles::Tone;

TrackInspector::TrackInspector(const Track& track, LibraryStore& store, MetadataService& service,
                               QWidget* parent)
    : QDialog(parent)
    , m_model(new InspectorModel(track, store, service, this)) {
    setWindowTitle(displayTitle(track));
    setWindowModality(Qt::WindowModal);
    setFixedSize(580, 660);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(new InspectorHeader(*m_model, this));
    layout->addWidget(divider(this));
    layout->addWidget(makeFields(), 1);
    layout->addWidget(divider(this));
    layout->addWidget(makeFooter());

    connect(m_model, &InspectorModel::draftChanged, this, &TrackInspector::refreshFooter);
    connect(m_model, &InspectorModel::savingChanged, this, &TrackInspector::refreshFooter);
    // A save that ends after Cancel has already closed the dialog closes nothing.
    connect(m_model, &InspectorModel::saved, this, [this] {
        if (isVisible())
            accept();
    });
    refreshFooter();
    m_model->start();
}

void TrackInspector::done(int result) {
    m_model->stop();
    QDialog::done(result);
}

QWidget* TrackInspector::makeFields() {
    auto* scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    auto* content = new QWidget(scroll);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(18, 18, 18, 18);
    column->setSpacing(14);
    column->addWidget(new InspectorLookupRow(*m_model, content));
    QWidget* previous = nullptr;
    for (const MetadataField& field : MetadataField::all()) {
        auto* row = new InspectorFieldRow(field, *m_model, content);
        column->addWidget(row);
        // Tab goes from field to field in table order.
        if (previous)
            setTabOrder(previous, row->editor());
        previous = row->editor();
    }
    column->addStretch();
    scroll->setWidget(content);
    return scroll;
}

QWidget* TrackInspector::makeFooter() {
    auto* footer = new QWidget(this);
    auto* row = new QHBoxLayout(footer);
    row->setContentsMargins(14, 14, 14, 14);
    m_noteSymbol = new QLabel(footer);
    m_note = new QLabel(footer);
    m_note->setObjectName(QStringLiteral("footerNote"));
    m_note->setWordWrap(true);
    m_saving = new QProgressBar(footer);
    m_saving->setObjectName(QStringLiteral("saving"));
    m_saving->setRange(0, 0);
    m_saving->setTextVisible(false);
    m_saving->setFixedSize(48, 8);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), footer);
    cancel->setAutoDefault(false);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    m_save = new QPushButton(QStringLiteral("Save"), footer);
    m_save->setObjectName(QStringLiteral("save"));
    m_save->setDefault(true);
    connect(m_save, &QPushButton::clicked, m_model, &InspectorModel::save);
    row->addWidget(m_noteSymbol);
    row->addWidget(m_note, 1);
    row->addWidget(m_saving);
    row->addWidget(cancel);
    row->addWidget(m_save);
    return footer;
}

void TrackInspector::refreshFooter() {
    const FooterNote note = m_model->footerNote();
    const Tone tone = note.kind == FooterNote::Kind::Warning ? Tone::Orange : Tone::Secondary;
    TextStyles::apply(m_note, Font::Caption, tone);
    m_note->setText(note.text);
    const QString symbol = note.kind == FooterNote::Kind::Info      ? QStringLiteral("dialog-information")
                           : note.kind == FooterNote::Kind::Warning ? QStringLiteral("dialog-warning")
                                                                    : QString();
    m_noteSymbol->setVisible(!symbol.isEmpty());
    if (!symbol.isEmpty())
        m_noteSymbol->setPixmap(TextStyles::symbol(symbol, m_note->fontMetrics().height(),
                                                   TextStyles::colour(this, tone), devicePixelRatioF()));
    m_saving->setVisible(m_model->isSaving());
    m_save->setEnabled(m_model->canSave());
}
