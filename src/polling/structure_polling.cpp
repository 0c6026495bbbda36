#include "polling/structure_polling.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "common/localizer.h"
#include "model/value_display.h"

uint32_t PollIntervalFromText(const std::string& text) {
    // Like the C library's text-to-int conversion: leading blanks, a sign, digits; anything else
    // ends the number, and no number at all is 0.
    errno = 0;
    long long value = std::strtoll(text.c_str(), nullptr, 10);
    if (value > INT_MAX) value = INT_MAX;
    if (value < INT_MIN) value = INT_MIN;
    const uint32_t interval = static_cast<uint32_t>(static_cast<int32_t>(value));
    return interval < 100 ? 100 : interval;
}

PollingEngine::OnResults MakeStructureResultsHandler(const StructurePolling& polling, int32_t structureId,
                                                     PollingEngine::OnResults handOff) {
    StructureStore* store = &polling.store;
    AlarmEngine* alarms = &polling.alarms;
    RecordingBuffer* recording = &polling.recording;
    return [store, alarms, recording, structureId, handOff](const std::vector<Modbus::PollingResult>& results) {
        for (size_t i = 0; i < results.size(); ++i) {
            const Modbus::PollingResult& result = results[i];
            if (!result.ok) continue;
            // Looked up again for every result, as the store may change while polling runs; the
            // results come in the order of the structure's details, so position i is tried first.
            const std::optional<Modbus::ModbusDetail> detail = store->FindDetail(structureId, result.detailId, i);
            if (!detail) continue;
            alarms->EvaluateAlarms(*detail, NumericValue(result.value));
            recording->Record(result, *detail);
        }
        if (handOff) handOff(results);
    };
}

StructurePollStart StartStructurePolling(const StructurePolling& polling, int32_t structureId, uint32_t intervalMs,
                                         ModbusClient::LogCallback log, PollingEngine::OnResults handOff) {
    const std::optional<ModbusStructure> structure = polling.store.FindStructure(structureId);
    if (!structure || structure->details.empty()) return StructurePollStart::NoStructureOrDetails;

    if (!polling.connection.IsConnected()) {
        polling.connection.SetLogCallback(std::move(log));
        ConnectionConfig config;
        config.transport = 0;
        config.role = 0;
        config.ipAddress = structure->ip;
        config.port = structure->port;
        config.unitId = structure->unitId;
        if (!polling.connection.Connect(config)) return StructurePollStart::ConnectionFailed;
    }

    ModbusClient* connection = &polling.connection;
    const uint8_t unitId = structure->unitId;
    polling.engine.SetDetails(structure->details);
    polling.engine.SetReadDetail([connection, unitId](const Modbus::ModbusDetail& detail, std::vector<uint16_t>& out) {
        return ReadDetailRegisters(*connection, unitId, detail, out);
    });
    polling.engine.SetOnResults(MakeStructureResultsHandler(polling, structureId, std::move(handOff)));
    polling.engine.Start(intervalMs);
    return StructurePollStart::Started;
}

void StopStructurePolling(const StructurePolling& polling) {
    polling.engine.Stop();
    polling.connection.Disconnect();
}

std::string StructurePollStartMessage(StructurePollStart result) {
    switch (result) {
        case StructurePollStart::NoStructureOrDetails:
            return Localizer::Text(Localizer::Scope::Ui, "Please select a structure with details.",
                                   "Bitte Struktur mit Details auswaehlen.");
        case StructurePollStart::ConnectionFailed:
            return Localizer::Text(Localizer::Scope::Ui, "Connection to structure failed.",
                                   "Verbindung zur Struktur fehlgeschlagen.");
        case StructurePollStart::Started: break;
    }
    return "";
}

std::string StructurePollStartTitle(StructurePollStart result) {
    if (result == StructurePollStart::ConnectionFailed) return Localizer::Text(Localizer::Scope::Ui, "Error", "Fehler");
    return Localizer::Text(Localizer::Scope::Ui, "Notice", "Hinweis");
}

std::string PollingStartedText() {
    return Localizer::Text(Localizer::Scope::Ui, "Polling started...\r\n", "Polling gestartet...\r\n");
}

std::string LiveValueLine(const Modbus::PollingResult& result) {
    // A failed read shows "[Fehler]" in both languages. A read that succeeded with no registers is
    // valid and shows its (empty) value text.
    if (!result.ok) return result.name + ": [Fehler]";
    return result.name + ": " + result.displayText;
}
