// Placeholder until the slave server lands: the slave role cannot be started yet.
#include "protocol/modbus_client.h"

bool ModbusClient::StartTcpSlave() { return false; }
bool ModbusClient::StartRtuSlave() { return false; }
void ModbusClient::TcpServerLoop() {}
void ModbusClient::RtuServerLoop() {}
void ModbusClient::ServeTcpClient(SOCKET) {}
bool ModbusClient::IsInjectedAddress(uint16_t) const { return false; }
void ModbusClient::ProcessRequest(const Modbus::Bytes&, SOCKET) {}
void ModbusClient::SendResponse(bool, SOCKET, uint16_t, uint8_t, uint8_t, const Modbus::Bytes&) {}
void ModbusClient::SendException(bool, SOCKET, uint16_t, uint8_t, uint8_t, uint8_t) {}
