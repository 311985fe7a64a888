#pragma once

#include "library/Track.h"
#include "services/MetadataService.h"
#include "tags/MusicMetadata.h"
#include "ui/InspectorRules.h"

#include <QFuture>
#include <QObject>

#include <optional>

class LibraryStore;

// The state of one opening of the track inspector: the draft being edited beside the values read from
// the file, the online lookup, the file's facts and the save. The widgets show it and call its operations.
//
// Lives on the main thread. The lookup and the save run elsewhere (the service, the store's writer) and
// their answers are applied here; nothing is locked, so the user keeps editing meanwhile and suggestions are
// always measured against the draft as it stands.
class InspectorModel : public QObject {
    Q_OBJECT
public:
    struct Lookup {
        enum class Kind { Idle, Loading, Found, Failed, Offline, NoMatch };
        Kind kind = Kind::Idle;
        std::optional<RemoteMetadata> remote; // Found only
        QString message;                      // Failed only
    };

    // `store` and `service` must outlive the model.
    InspectorModel(const Track& track, LibraryStore& store, MetadataService& service,
                   QObject* parent = nullptr);
    // Stops the lookup.
    ~InspectorModel() override;

    const Track& track() const { return m_track; }
    const MusicMetadata& draft() const { return m_draft; }
    const MusicMetadata& original() const { return m_original; }
    const Lookup& lookup() const { return m_lookup; }
    const std::optional<Inspector::FileFacts>& facts() const { return m_facts; }
    bool isSaving() const { return m_isSaving; }
    const std::optional<QString>& saveError() const { return m_saveError; }
    bool embedFolderArtwork() const { return m_embedFolderArtwork; }

    // Reads the file's facts and asks the service once, with the values read from the file. Call it once.
    void start();
    // Drops the lookup: one still waiting for its turn is never sent, and a late answer is ignored.
    void stop();

    bool isEdited() const { return !(m_draft == m_original); }
    bool isEdited(const MetadataField& field) const;
    // The online value to offer for the field against the draft; nothing unless the lookup found a record.
    std::optional<QString> suggestion(const MetadataField& field) const;
    int differingFieldCount() const;
    bool canSave() const;
    FooterNote footerNote() const;

    void setField(const MetadataField& field, const QString& text);
    void useSuggestion(const MetadataField& field);
    void useAllSuggestions();
    void setEmbedFolderArtwork(bool embed);
    // Hands the draft to the store; `saved` follows success, a failure sets saveError.
    void save();

signals:
    void draftChanged();
    void lookupChanged();
    void factsChanged();
    void savingChanged(); // isSaving, saveError or embedFolderArtwork
    void saved();

private:
    void setLookup(Lookup lookup);

    const Track m_track;
    LibraryStore& m_store;
    MetadataService& m_service;
    const MusicMetadata m_original;
    MusicMetadata m_draft;
    Lookup m_lookup;
    std::optional<Inspector::FileFacts> m_facts;
    bool m_isSaving = false;
    std::optional<QString> m_saveError;
    bool m_embedFolderArtwork = false;
    QFuture<LookupResult> m_request; // the service's own future, so that cancelling reaches the service
    bool m_stopped = false;
};
