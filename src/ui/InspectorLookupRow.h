#pragma once

#include <QWidget>

class InspectorModel;
class QLabel;
class QMessageBox;
class QProgressBar;
class QPushButton;

// The inspector's line about the online lookup: checking, what was found and how sure the service is
// (with "Use All" behind a confirmation), or why nothing was.
class InspectorLookupRow : public QWidget {
    Q_OBJECT
public:
    explicit InspectorLookupRow(InspectorModel& model, QWidget* parent = nullptr);

private:
    void refresh();
    void confirmUseAll();

    InspectorModel& m_model;
    QLabel* m_symbol = nullptr;
    QProgressBar* m_busy = nullptr;
    QLabel* m_text = nullptr;
    QLabel* m_badge = nullptr;
    QPushButton* m_useAll = nullptr;
};
