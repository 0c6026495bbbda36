#include "ui/app.h"

namespace ui {

AppState& App() {
    static AppState state;
    return state;
}

ModbusClient& MainConnection() {
    static ModbusClient client;
    return client;
}

ModbusClient& StructurePollingConnection() {
    static ModbusClient client;
    return client;
}

PollingEngine& Poller() {
    static PollingEngine engine;
    return engine;
}

AlarmEngine& Alarms() {
    static AlarmEngine engine;
    return engine;
}

StructureStore& Store() {
    static StructureStore store;
    return store;
}

RecordingBuffer& Recording() {
    static RecordingBuffer buffer;
    return buffer;
}

AppSettings& Settings() {
    static AppSettings settings;
    return settings;
}

std::mutex& MainWireMutex() {
    static std::mutex mutex;
    return mutex;
}

}  // namespace ui
