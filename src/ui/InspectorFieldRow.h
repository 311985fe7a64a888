#pragma once

#include "tags/MusicMetadata.h"

#include <QWidget>

class InspectorModel;
class QLabel;
class QLineEdit;
class QPlainTextEdit;

// One of the inspector's eight fields: its label with the suggestion dot and the "edited" marker, its
// editor bound to the draft, and the online value with its "Use" button when the service differs.
class InspectorFieldRow : public QWidget {
    Q_OBJECT
public:
    InspectorFieldRow(const MetadataField& field, InspectorModel& model, QWidget* parent = nullptr);

    // The field's editor, for the dialog's tab order.
    QWidget* editor() const;

private:
    void refresh();
    QWidget* makeEditor();

    const MetadataField m_field;
    InspectorModel& m_model;
    QLineEdit* m_line = nullptr;      // single-line fields
    QPlainTextEdit* m_text = nullptr; // multiline fields
    QWidget* m_dot = nullptr;
    QWidget* m_edited = nullptr;
    QWidget* m_suggestionLine = nullptr;
    QLabel* m_suggestion = nullptr;
};
