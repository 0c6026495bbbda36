#pragma once
// Every command and control id of the main window and its dialogs. The window procedure dispatches
// WM_COMMAND on these; tests find the controls by them.

namespace ui::id {

// Connection panel.
inline constexpr int kTcp = 1001;
inline constexpr int kRtu = 1002;
inline constexpr int kMaster = 1003;
inline constexpr int kSlave = 1004;
inline constexpr int kIpAddress = 1005;
inline constexpr int kPort = 1006;
inline constexpr int kComPort = 1007;
inline constexpr int kBaudRate = 1008;
inline constexpr int kUnitId = 1009;
inline constexpr int kConnect = 1010;
inline constexpr int kConnectionStatus = 1068;

// Register R/W page.
inline constexpr int kWriteFunction = 1011;
inline constexpr int kWriteAddress = 1012;
inline constexpr int kWriteValue1 = 1013;  // 1013..1016
inline constexpr int kWrite = 1017;
inline constexpr int kReadFunction = 1018;
inline constexpr int kReadAddress = 1019;
inline constexpr int kReadCount = 1020;
inline constexpr int kDataType = 1021;
inline constexpr int kByteOrder = 1022;
inline constexpr int kScale = 1023;
inline constexpr int kOffset = 1024;
inline constexpr int kRegister1 = 1025;  // 1025..1028
inline constexpr int kDecoded = 1029;
inline constexpr int kRead = 1030;
inline constexpr int kPollInterval = 1031;
inline constexpr int kPollStart = 1032;
inline constexpr int kPollStop = 1033;
inline constexpr int kProtocolLog = 1034;

// Structures page.
inline constexpr int kStructureList = 1035;
inline constexpr int kDetailList = 1036;
inline constexpr int kStructureNew = 1037;
inline constexpr int kStructureEdit = 1038;
inline constexpr int kStructureDelete = 1039;
inline constexpr int kStructureDemo = 1040;
inline constexpr int kStructureConnect = 1041;
inline constexpr int kStructureName = 1042;
inline constexpr int kStructureIp = 1043;
inline constexpr int kStructurePort = 1044;
inline constexpr int kStructureUnitId = 1045;
inline constexpr int kStructureDescription = 1046;
inline constexpr int kStructureRtuOverTcp = 1047;
inline constexpr int kStructureSave = 1048;
inline constexpr int kStructureCancel = 1049;
inline constexpr int kDetailNew = 1050;
inline constexpr int kDetailDelete = 1051;
inline constexpr int kStructurePollStart = 1052;
inline constexpr int kStructurePollStop = 1053;
inline constexpr int kStructurePollInterval = 1054;
inline constexpr int kRecord = 1055;
inline constexpr int kLiveValues = 1056;
inline constexpr int kCsvExport = 1057;
inline constexpr int kJsonExport = 1058;

// Diagnostics page.
inline constexpr int kFrameList = 1059;
inline constexpr int kStatistics = 1060;
inline constexpr int kTraceClear = 1061;
inline constexpr int kExportPcap = 1062;

// Alarms page.
inline constexpr int kAlarmList = 1063;
inline constexpr int kAlarmCounter = 1064;
inline constexpr int kAcknowledge = 1065;
inline constexpr int kAcknowledgeAll = 1066;
inline constexpr int kClearAlarms = 1067;

// Shell.
inline constexpr int kSettings = 1070;
inline constexpr int kTabControl = 1071;

// Detail dialog.
inline constexpr int kDetailName = 2001;
inline constexpr int kDetailDataType = 2002;
inline constexpr int kDetailArraySize = 2003;
inline constexpr int kDetailFunctionCode = 2004;
inline constexpr int kDetailAddress = 2005;
inline constexpr int kDetailByteOrder = 2006;
inline constexpr int kDetailScale = 2007;
inline constexpr int kDetailOffset = 2008;
inline constexpr int kDetailUnit = 2009;
inline constexpr int kDetailSave = 2010;
inline constexpr int kDetailCancel = 2011;
inline constexpr int kDetailWarnLow = 2012;
inline constexpr int kDetailWarnHigh = 2013;
inline constexpr int kDetailAlarmLow = 2014;
inline constexpr int kDetailAlarmHigh = 2015;
inline constexpr int kDetailAlarmOnChange = 2016;

// Settings dialog.
inline constexpr int kThemeSystem = 3001;
inline constexpr int kThemeLight = 3002;
inline constexpr int kThemeDark = 3003;
inline constexpr int kLanguage = 3004;
inline constexpr int kExportJson = 3005;
inline constexpr int kImportJson = 3006;
inline constexpr int kMqttEnabled = 3007;
inline constexpr int kMqttBroker = 3008;
inline constexpr int kMqttPort = 3009;
inline constexpr int kMqttTopicPrefix = 3010;
inline constexpr int kMqttClientId = 3011;
inline constexpr int kMqttUser = 3012;
inline constexpr int kMqttPassword = 3013;
inline constexpr int kMqttQos = 3014;
inline constexpr int kSettingsOk = 3015;
inline constexpr int kSettingsCancel = 3016;

}  // namespace ui::id
