#pragma once

#include "library/Track.h"

#include <QDialog>

class InspectorModel;
class LibraryStore;
class MetadataService;
class QLabel;
class QProgressBar;
class QPushButton;

// The sheet that edits one song's tags beside the online service's suggestions; nothing reaches the
// file until Save.
//
// Asks `service` once for the song, with the values read from the file, as soon as it is built; closing
// the dialog in any way drops that lookup. Save hands the draft to `store`, which writes the file off the
// main thread; the dialog stays responsive meanwhile and closes (accepted) once the tags are saved, or
// stays open with the store's message in its footer. Cancel and Escape close it (rejected) and drop the
// draft. `store` and `service` must outlive the dialog.
class TrackInspector : public QDialog {
    Q_OBJECT
public:
    TrackInspector(const Track& track, LibraryStore& store, MetadataService& service,
                   QWidget* parent = nullptr);

    void done(int result) override;

private:
    QWidget* makeFields();
    QWidget* makeFooter();
    void refreshFooter();

    InspectorModel* m_model = nullptr;
    QLabel* m_noteSymbol = nullptr;
    QLabel* m_note = nullptr;
    QProgressBar* m_saving = nullptr;
    QPushButton* m_save = nullptr;
};
