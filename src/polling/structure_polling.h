#pragma once
// Polling one structure of the store, as the Structures page's Start and Stop buttons do it, minus
// the windows: the window adds its message boxes, buttons and posted messages; the command line
// prints instead. Both use this code.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "model/alarm_engine.h"
#include "model/structure_store.h"
#include "polling/polling_engine.h"
#include "polling/recording_buffer.h"
#include "protocol/modbus_client.h"

// The objects structure polling works with; all of them outlive the polling.
struct StructurePolling {
    StructureStore& store;
    ModbusClient& connection;  // the structure-polling connection, used by nothing else
    PollingEngine& engine;
    AlarmEngine& alarms;
    RecordingBuffer& recording;
};

enum class StructurePollStart {
    Started,
    NoStructureOrDetails,  // "Please select a structure with details."
    ConnectionFailed,      // "Connection to structure failed."
};

// The poll-interval field's text as the window converts it: an integer conversion that gives 0 for
// text that is not a number; a result below 100, taken as unsigned, becomes 100. A negative entry
// is therefore not raised to 100 but becomes a very long interval.
uint32_t PollIntervalFromText(const std::string& text);

// Finds the structure, connects the structure-polling connection over TCP when it is not connected
// (with `log` as its log callback; an already connected one is used as it is, whatever device it
// reaches), hands the engine a copy of the details, a read bound to the structure's unit id and the
// results handler below, and starts it. Polling always frames Modbus TCP; the structure's
// RTU-over-TCP flag is not used here.
StructurePollStart StartStructurePolling(const StructurePolling& polling, int32_t structureId, uint32_t intervalMs,
                                         ModbusClient::LogCallback log, PollingEngine::OnResults handOff);

// Stops the engine and always closes the structure-polling connection.
void StopStructurePolling(const StructurePolling& polling);

// The results handler (poll thread): for each result read successfully, finds the structure and
// the detail again (skipping it when either is gone), feeds the alarm engine with the value's
// number and the recording buffer with the result; then hands the results on.
PollingEngine::OnResults MakeStructureResultsHandler(const StructurePolling& polling, int32_t structureId,
                                                     PollingEngine::OnResults handOff);

// The message-box texts and title for a start that did not happen (Ui language).
std::string StructurePollStartMessage(StructurePollStart result);
std::string StructurePollStartTitle(StructurePollStart result);
// "Polling started...\r\n" / "Polling gestartet...\r\n"
std::string PollingStartedText();
// One line of the "Live Values" box: "name: text", or "name: [Fehler]" for a failed detail.
std::string LiveValueLine(const Modbus::PollingResult& result);
