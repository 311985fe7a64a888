#include "ui/InspectorModel.h"

#include "library/TrackMetadata.h"
#include "store/LibraryStore.h"
#include "tags/TextRules.h"
#include "ui/WhenReady.h"

#include <QtConcurrent>

InspectorModel::InspectorModel(const Track& track, LibraryStore& store, MetadataService& service,
                               QObject* parent)
    : QObject(parent)
    , m_track(track)
    , m_store(store)
    , m_service(service)
    , m_original(musicMetadata(track))
    , m_draft(m_original) {}

InspectorModel::~InspectorModel() {
    stop();
}

void InspectorModel::start() {
    whenReady(this, QtConcurrent::run(loadFileDetails, m_track), [this](const FileDetails& facts) {
        m_facts = facts;
        emit factsChanged();
    });
    if (m_track.title().isEmpty() && m_track.artist().isEmpty()) {
        setLookup({Lookup::Kind::NoMatch, {}, {}});
        return;
    }
    setLookup({Lookup::Kind::Loading, {}, {}});
    // The query is what the file says, so edits made while the lookup runs do not change it.
    m_request = m_service.lookup(m_original.title, m_original.artist, m_original.album);
    whenReady(this, m_request, [this](const LookupResult& result) {
        switch (result.kind) {
        case LookupResult::Kind::Found:
            return setLookup({Lookup::Kind::Found, result.metadata, {}});
        case LookupResult::Kind::Failed:
            return setLookup({Lookup::Kind::Failed, {}, result.message});
        case LookupResult::Kind::Offline:
            return setLookup({Lookup::Kind::Offline, {}, {}});
        case LookupResult::Kind::NoMatch:
            return setLookup({Lookup::Kind::NoMatch, {}, {}});
        }
    });
}

void InspectorModel::stop() {
    m_stopped = true;
    m_request.cancel();
}

void InspectorModel::setLookup(Lookup lookup) {
    if (m_stopped)
        return;
    m_lookup = std::move(lookup);
    emit lookupChanged();
}

bool InspectorModel::isEdited(const MetadataField& field) const {
    return !TextRules::canonicallyEqual(m_draft.*field.local, m_original.*field.local);
}

std::optional<QString> InspectorModel::suggestion(const MetadataField& field) const {
    return ::suggestion(field, m_draft.*field.local, m_lookup.remote);
}

int InspectorModel::differingFieldCount() const {
    return ::differingFieldCount(m_draft, m_lookup.remote);
}

bool InspectorModel::canSave() const {
    return ::canSave(m_track, isEdited(), m_embedFolderArtwork, m_isSaving);
}

FooterNote InspectorModel::footerNote() const {
    return ::footerNote(m_track, m_saveError, isEdited());
}

void InspectorModel::setField(const MetadataField& field, const QString& text) {
    if (m_draft.*field.local == text)
        return;
    m_draft.*field.local = text;
    emit draftChanged();
}

void InspectorModel::useSuggestion(const MetadataField& field) {
    if (const std::optional<QString> value = suggestion(field)) {
        applySuggestion(field, *value, m_draft);
        emit draftChanged();
    }
}

void InspectorModel::useAllSuggestions() {
    applyAllSuggestions(m_draft, m_lookup.remote);
    emit draftChanged();
}

void InspectorModel::setEmbedFolderArtwork(bool embed) {
    if (embed == m_embedFolderArtwork)
        return;
    m_embedFolderArtwork = embed;
    emit savingChanged();
}

void InspectorModel::save() {
    if (!canSave())
        return;
    m_isSaving = true;
    m_saveError.reset();
    emit savingChanged();
    whenReady(this, m_store.saveTags(m_track.id, m_draft, m_embedFolderArtwork),
              [this](const std::optional<QString>& error) {
                  m_isSaving = false;
                  m_saveError = error;
                  emit savingChanged();
                  if (!error)
                      emit saved();
              });
}
