#pragma once
// Every structure of the running program, in insertion order, with the counters that hand out
// unique structure and detail ids, persisted as one JSON text file. One mutex guards the list and
// the counters: AddStructure and ParseStructures take it, and so does every helper below that
// changes or copies the list. SerializeStructures and SaveStructures read without it; they run on
// the user-interface thread, the only thread that changes the list.
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "model/structure.h"

inline constexpr const char* kStructuresFileName = "modbus_structures.json";

class StructureStore {
public:
    // The file is "modbus_structures.json", resolved against the current directory; the command
    // line and the tests may name another one.
    explicit StructureStore(std::string path = kStructuresFileName);
    StructureStore(const StructureStore&) = delete;
    StructureStore& operator=(const StructureStore&) = delete;

    // Gives the structure the next structure id and each of its details, in order, the next detail
    // id, then appends a copy. Does not save. Returns the structure's id.
    int32_t AddStructure(const ModbusStructure& structure);
    // Writes SerializeStructures to the file (through a temporary file renamed over it). A file
    // that cannot be written is silently not written; the result says whether it was.
    bool SaveStructures() const;
    // Reads the whole file and parses it; a file that cannot be opened leaves the store as it is.
    // The conversion errors of ParseStructures pass through.
    void LoadStructures();
    // Replaces the list with the structures found in the text (the id counters are not reset but
    // raised above every id read). Returns whether the list is non-empty. A number that cannot be
    // converted throws std::invalid_argument or std::out_of_range out of here; the structures
    // parsed before it stay.
    bool ParseStructures(const std::string& text);
    std::string SerializeStructures() const;
    // Adds the demo device and saves.
    void CreateDemoStructure();

    // Export: save, then copy the file to `to`. Import: copy `from` over the file (not checked
    // first), then load. False when the copy failed.
    bool ExportStructures(const std::string& to) const;
    bool ImportStructures(const std::string& from);

    // For the dialogs, all under the lock and without saving.
    std::vector<ModbusStructure> Structures() const;  // a copy
    std::optional<ModbusStructure> FindStructure(int32_t id) const;
    // The detail with this id inside the structure with that id, copied alone under the lock (the
    // poll thread asks for every result of a cycle, so the structure itself is not copied).
    // `hint` is where the detail is expected in the list; any position is still found.
    std::optional<Modbus::ModbusDetail> FindDetail(int32_t structureId, int32_t detailId, size_t hint = 0) const;
    // Replaces name, description, ip, port, unit id and RTU-over-TCP of the structure with this id,
    // keeping its id and details. False when there is none.
    bool UpdateStructureFields(int32_t id, const ModbusStructure& fields);
    bool RemoveStructure(int32_t id);
    // Appends the detail with the next detail id to the structure; returns the id, or 0 when there
    // is no such structure.
    int32_t AddDetail(int32_t structureId, const Modbus::ModbusDetail& detail);
    // Replaces the detail with the same id inside the structure.
    bool UpdateDetail(int32_t structureId, const Modbus::ModbusDetail& detail);
    bool RemoveDetail(int32_t structureId, int32_t detailId);

    int32_t NextStructureId() const;
    int32_t NextDetailId() const;
    const std::string& Path() const { return path_; }

    // The lock and the list itself, for callers that need several steps under one lock.
    std::mutex& Mutex() const { return mutex_; }
    std::vector<ModbusStructure>& ListLocked() { return structures_; }

private:

    std::string path_;
    mutable std::mutex mutex_;
    std::vector<ModbusStructure> structures_;
    int32_t nextStructureId_ = 1;
    int32_t nextDetailId_ = 1;
};
