#pragma once

#include <QWidget>

class InspectorModel;
class QLabel;

// The top of the track inspector: the cover, the file's name, facts and path, where the artwork comes
// from, and the checkbox that copies a folder image into the file.
class InspectorHeader : public QWidget {
    Q_OBJECT
public:
    explicit InspectorHeader(InspectorModel& model, QWidget* parent = nullptr);

private:
    void loadCover();

    InspectorModel& m_model;
    QLabel* m_cover = nullptr;
};
