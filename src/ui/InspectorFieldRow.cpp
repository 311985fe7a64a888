#include "ui/InspectorFieldRow.h"

#include "ui/InspectorModel.h"
#include "ui/TextStyles.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPlainTextEdit>
#include <QToolButton>
#include <QVBoxLayout>

using TextStyles::Font;
using TextStyles::Tone;

namespace {

constexpr int narrowWidth = 120;
constexpr int minimumLines = 2;
constexpr int maximumLines = 4;

// A multi-line box that grows with its text from two to four lines, then scrolls.
class GrowingTextEdit : public QPlainTextEdit {
public:
    explicit GrowingTextEdit(QWidget* parent)
        : QPlainTextEdit(parent) {
        setTabChangesFocus(true);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        connect(document()->documentLayout(), &QAbstractTextDocumentLayout::documentSizeChanged, this,
                &GrowingTextEdit::fitLines);
        fitLines();
    }

private:
    // The plain-text layout measures its document in visual lines, wrapped lines included.
    void fitLines() {
        const int lines = std::clamp(int(document()->size().height()), minimumLines, maximumLines);
        const int margins =
            contentsMargins().top() + contentsMargins().bottom() + 2 * int(document()->documentMargin());
        setFixedHeight(lines * fontMetrics().lineSpacing() + margins);
    }
};

// The orange dot that marks a field the service has another value for.
QLabel* suggestionDot(QWidget* parent) {
    constexpr int size = 5;
    QPixmap pixmap = TextStyles::canvas(parent, size);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(TextStyles::colour(parent, Tone::Orange));
    painter.drawEllipse(QRectF(0, 0, size, size));
    auto* dot = new QLabel(parent);
    dot->setPixmap(pixmap);
    dot->setFixedSize(size, size);
    dot->setToolTip(QStringLiteral("An online service has a different value for this field."));
    return dot;
}

} // namespace

InspectorFieldRow::InspectorFieldRow(const MetadataField& field, InspectorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_field(field)
    , m_model(model) {
    setObjectName(field.id);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);

    auto* labelLine = new QHBoxLayout;
    labelLine->setSpacing(6);
    auto* label = new QLabel(field.label, this);
    TextStyles::apply(label, Font::Caption, Tone::Secondary);
    labelLine->addWidget(label);
    m_dot = suggestionDot(this);
    m_dot->setObjectName(QStringLiteral("suggestionDot"));
    labelLine->addWidget(m_dot);
    auto* edited = new QLabel(QStringLiteral("edited"), this);
    edited->setObjectName(QStringLiteral("edited"));
    TextStyles::apply(edited, Font::Caption2, Tone::Orange);
    m_edited = edited;
    labelLine->addWidget(edited);
    labelLine->addStretch();
    column->addLayout(labelLine);

    QWidget* editor = makeEditor();
    editor->setAccessibleName(field.label);
    if (field.isNarrow)
        editor->setMaximumWidth(narrowWidth);
    column->addWidget(editor, 0, field.isNarrow ? Qt::AlignLeft : Qt::Alignment());

    m_suggestionLine = new QWidget(this);
    m_suggestionLine->setObjectName(QStringLiteral("suggestionLine"));
    auto* suggestionLine = new QHBoxLayout(m_suggestionLine);
    suggestionLine->setContentsMargins(2, 0, 0, 0);
    suggestionLine->setSpacing(6);
    m_suggestion = new QLabel(m_suggestionLine);
    m_suggestion->setObjectName(QStringLiteral("suggestion"));
    m_suggestion->setWordWrap(true);
    TextStyles::apply(m_suggestion, Font::Callout, Tone::Secondary);
    auto* globe = new QLabel(m_suggestionLine);
    globe->setPixmap(TextStyles::symbol(QStringLiteral("web-browser"), 11,
                                        TextStyles::colour(this, Tone::Secondary), devicePixelRatioF()));
    auto* use = new QToolButton(m_suggestionLine);
    use->setText(QStringLiteral("Use"));
    use->setObjectName(QStringLiteral("use"));
    use->setAutoRaise(true);
    use->setAccessibleName(QStringLiteral("Use the online %1").arg(field.label));
    use->setCursor(Qt::PointingHandCursor);
    QPalette link = use->palette();
    link.setColor(QPalette::ButtonText, link.color(QPalette::Link));
    use->setPalette(link);
    TextStyles::apply(use, Font::Callout, Tone::Primary);
    connect(use, &QToolButton::clicked, this, [this] { m_model.useSuggestion(m_field); });
    suggestionLine->addWidget(globe);
    suggestionLine->addWidget(m_suggestion);
    suggestionLine->addWidget(use);
    suggestionLine->addStretch();
    column->addWidget(m_suggestionLine);

    connect(&model, &InspectorModel::draftChanged, this, &InspectorFieldRow::refresh);
    connect(&model, &InspectorModel::lookupChanged, this, &InspectorFieldRow::refresh);
    refresh();
}

QWidget* InspectorFieldRow::editor() const {
    return m_line ? static_cast<QWidget*>(m_line) : m_text;
}

QWidget* InspectorFieldRow::makeEditor() {
    const QString text = m_model.draft().*m_field.local;
    if (m_field.isMultiline) {
        m_text = new GrowingTextEdit(this);
        m_text->setPlainText(text);
        connect(m_text, &QPlainTextEdit::textChanged, this,
                [this] { m_model.setField(m_field, m_text->toPlainText()); });
        return m_text;
    }
    m_line = new QLineEdit(text, this);
    m_line->setClearButtonEnabled(false);
    connect(m_line, &QLineEdit::textEdited, this,
            [this](const QString& edited) { m_model.setField(m_field, edited); });
    return m_line;
}

void InspectorFieldRow::refresh() {
    const QString text = m_model.draft().*m_field.local;
    // Only a change from elsewhere (Use, Use All) is written back, so typing keeps its cursor.
    if (m_line && m_line->text() != text)
        m_line->setText(text);
    if (m_text && m_text->toPlainText() != text)
        m_text->setPlainText(text);
    const std::optional<QString> suggestion = m_model.suggestion(m_field);
    m_dot->setVisible(suggestion.has_value());
    m_suggestionLine->setVisible(suggestion.has_value());
    m_suggestion->setText(suggestion.value_or(QString()));
    m_edited->setVisible(m_model.isEdited(m_field));
}
