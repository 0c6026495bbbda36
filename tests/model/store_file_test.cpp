// The structures file: save and load, the atomic replace, export and import, a strict JSON parser
// reading what the writer wrote, and the reader on truncated, garbage and adversarial files.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>

#include "model/demo_structure.h"
#include "model/json_text.h"
#include "model/structure_store.h"
#include "model_test_support.h"

#if !defined(_WIN32)
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using Modbus::ModbusDetail;

namespace {

ModbusStructure Named(const std::string& name, int details) {
    ModbusStructure s;
    s.name = name;
    for (int i = 0; i < details; ++i) {
        ModbusDetail d;
        d.name = name + " #" + std::to_string(i);
        d.dataType = static_cast<Modbus::DataType>(i % Modbus::kDataTypeCount);
        d.byteOrder = static_cast<Modbus::ByteOrder>(i % Modbus::kByteOrderCount);
        d.widgetType = static_cast<Modbus::WidgetType>(i % Modbus::kWidgetTypeCount);
        d.scale = 0.001 * (i + 1);
        d.offset = -0.5 * i;
        s.details.push_back(d);
    }
    return s;
}

// Parses and reports whether only the documented conversion errors escaped.
bool ParseSurvives(StructureStore& store, const std::string& text) {
    try {
        store.ParseStructures(text);
    } catch (const std::invalid_argument&) {
    } catch (const std::out_of_range&) {
    } catch (...) {
        return false;
    }
    return true;
}

// A file with NUL bytes inside a string value and a number.
std::string WithNuls() {
    static const char text[] = "{\"ip\": \"a\0b\", \"port\": 1\0 2}";
    return std::string(text, sizeof text - 1);
}

}  // namespace

TEST(StoreFile, SaveWritesTheSerializedTextAndLoadReadsItBack) {
    ScratchFolder folder;
    StructureStore store(folder.File("modbus_structures.json"));
    store.AddStructure(BuildDemoStructure());
    store.AddStructure(Named("Quote \" \\ \n\t; \xC3\xA4", 3));
    ASSERT_TRUE(store.SaveStructures());
    EXPECT_EQ(ReadText(store.Path()), store.SerializeStructures());
    EXPECT_FALSE(platform::FileExists(store.Path() + ".tmp"));

    StructureStore loaded(store.Path());
    loaded.LoadStructures();
    EXPECT_EQ(loaded.SerializeStructures(), store.SerializeStructures());
    EXPECT_EQ(loaded.NextStructureId(), 3);
    EXPECT_EQ(loaded.NextDetailId(), 20);
}

TEST(StoreFile, SaveReplacesTheOldFileAsAWhole) {
    ScratchFolder folder;
    const std::string path = folder.File("modbus_structures.json");
    WriteText(path, std::string(100000, 'x'));
    StructureStore store(path);
    ASSERT_TRUE(store.SaveStructures());
    EXPECT_EQ(ReadText(path), "{\n  \"structures\": [\n\n  ]\n}\n");
}

TEST(StoreFile, SaveIntoAMissingFolderWritesNothing) {
    ScratchFolder folder;
    StructureStore store(folder.File("missing/modbus_structures.json"));
    store.AddStructure(Named("a", 1));
    EXPECT_FALSE(store.SaveStructures());
    EXPECT_FALSE(platform::FileExists(store.Path()));
    EXPECT_FALSE(platform::FileExists(store.Path() + ".tmp"));
}

TEST(StoreFile, MissingFileLeavesTheStoreAsItIs) {
    ScratchFolder folder;
    StructureStore store(folder.File("none.json"));
    store.AddStructure(Named("kept", 1));
    store.LoadStructures();
    ASSERT_EQ(store.Structures().size(), 1u);
    EXPECT_EQ(store.Structures()[0].name, "kept");
}

TEST(StoreFile, EmptyFileAndEmptyObjectLoadAsEmptyLists) {
    ScratchFolder folder;
    const std::string path = folder.File("s.json");
    StructureStore store(path);
    store.AddStructure(Named("old", 1));
    WriteText(path, "");
    store.LoadStructures();
    EXPECT_TRUE(store.Structures().empty());
    store.AddStructure(Named("old", 1));
    WriteText(path, "{}");
    store.LoadStructures();
    EXPECT_TRUE(store.Structures().empty());
}

TEST(StoreFile, DefaultFileIsModbusStructuresJsonInTheCurrentDirectory) {
    ScratchFolder folder;
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    {
        StructureStore store;
        store.CreateDemoStructure();
    }
    std::filesystem::current_path(previous);
    const std::string text = ReadText(folder.File("modbus_structures.json"));
    EXPECT_NE(text.find("\"name\": \"Demo-Geraet\""), std::string::npos);
}

TEST(StoreFile, CreateDemoStructureAddsAndSaves) {
    ScratchFolder folder;
    StructureStore store(folder.File("modbus_structures.json"));
    store.AddStructure(Named("first", 2));
    store.CreateDemoStructure();
    StructureStore loaded(store.Path());
    loaded.LoadStructures();
    const auto list = loaded.Structures();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].id, 2);
    EXPECT_EQ(list[1].name, "Demo-Geraet");
    ASSERT_EQ(list[1].details.size(), 16u);
    EXPECT_EQ(list[1].details.front().id, 3);
    EXPECT_EQ(list[1].details.back().id, 18);
    EXPECT_EQ(list[1].details[2].unit, "\xC2\xB0" "C");
}

TEST(StoreFile, ExportSavesThenCopies) {
    ScratchFolder folder;
    StructureStore store(folder.File("modbus_structures.json"));
    store.AddStructure(Named("exported", 2));
    const std::string backup = folder.File("backup \xC3\xA4.json");
    WriteText(backup, "old backup");
    ASSERT_TRUE(store.ExportStructures(backup));
    EXPECT_EQ(ReadText(backup), store.SerializeStructures());
    EXPECT_EQ(ReadText(store.Path()), store.SerializeStructures());
    EXPECT_FALSE(store.ExportStructures(folder.File("missing/backup.json")));
}

TEST(StoreFile, ImportCopiesOverTheFileAndReloads) {
    ScratchFolder folder;
    StructureStore source(folder.File("source.json"));
    source.AddStructure(Named("imported", 1));
    source.AddStructure(Named("second", 0));
    ASSERT_TRUE(source.SaveStructures());

    StructureStore store(folder.File("modbus_structures.json"));
    store.AddStructure(Named("replaced", 4));
    ASSERT_TRUE(store.ImportStructures(source.Path()));
    EXPECT_EQ(ReadText(store.Path()), ReadText(source.Path()));
    const auto list = store.Structures();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name, "imported");
}

TEST(StoreFile, ImportOfANonJsonFileSucceedsAsACopyAndEmptiesTheStore) {
    ScratchFolder folder;
    const std::string other = folder.File("notes.txt");
    WriteText(other, "these are not structures\n");
    StructureStore store(folder.File("modbus_structures.json"));
    store.AddStructure(Named("gone", 1));
    ASSERT_TRUE(store.SaveStructures());
    EXPECT_TRUE(store.ImportStructures(other));
    EXPECT_TRUE(store.Structures().empty());
    EXPECT_EQ(ReadText(store.Path()), "these are not structures\n");
}

TEST(StoreFile, ImportOfAMissingFileFailsAndKeepsEverything) {
    ScratchFolder folder;
    StructureStore store(folder.File("modbus_structures.json"));
    store.AddStructure(Named("kept", 1));
    ASSERT_TRUE(store.SaveStructures());
    const std::string before = ReadText(store.Path());
    EXPECT_FALSE(store.ImportStructures(folder.File("nothing.json")));
    EXPECT_EQ(ReadText(store.Path()), before);
    EXPECT_EQ(store.Structures().size(), 1u);
}

TEST(StoreFile, ImportOfAMalformedFileLetsTheConversionErrorThrough) {
    ScratchFolder folder;
    const std::string bad = folder.File("bad.json");
    WriteText(bad, "{\"id\": 1, \"ip\": \"a\", \"port\": x}");
    StructureStore store(folder.File("modbus_structures.json"));
    EXPECT_THROW(store.ImportStructures(bad), std::invalid_argument);
    EXPECT_TRUE(store.Structures().empty());
}

#if !defined(_WIN32)
TEST(StoreFile, AProcessKilledWhileSavingLeavesTheOldOrTheNewFile) {
    ScratchFolder folder;
    const std::string path = folder.File("modbus_structures.json");
    StructureStore oldStore(path);
    oldStore.AddStructure(Named("old", 5));
    ASSERT_TRUE(oldStore.SaveStructures());
    const std::string oldText = ReadText(path);

    StructureStore big(path);
    for (int i = 0; i < 200; ++i) big.AddStructure(Named("new " + std::to_string(i), 40));
    const std::string newText = big.SerializeStructures();
    ASSERT_GT(newText.size(), 2000000u);

    const auto started = std::chrono::steady_clock::now();
    int killedMidWrite = 0;  // rounds that left a partial temporary file behind
    std::mt19937 random(11);
    int round = 0;
    for (; round < 60 && killedMidWrite < 3; ++round) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // Odd rounds skip the serialization, so that the kill lands in the write more often.
            for (int i = 0; i < 1000; ++i) {
                if (round % 2 == 0) big.SaveStructures();
                else platform::WriteFileReplacing(path, newText);
            }
            _exit(0);
        }
        // Kill either at a random moment or, every other round, as soon as the temporary file is
        // seen half written, so that some kills land inside a write even on a loaded machine.
        if (round % 2 == 0) {
            usleep(static_cast<useconds_t>(1000 + random() % 12000));
        } else {
            const auto waitStart = std::chrono::steady_clock::now();
            struct stat st {};
            while (std::chrono::steady_clock::now() - waitStart < std::chrono::seconds(2)) {
                if (stat((path + ".tmp").c_str(), &st) == 0 && st.st_size > 0 &&
                    static_cast<size_t>(st.st_size) < newText.size()) {
                    break;
                }
            }
        }
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        const std::string now = ReadText(path);
        EXPECT_TRUE(now == oldText || now == newText) << "round " << round << ": " << now.size() << " bytes";
        if (platform::FileExists(path + ".tmp") && ReadText(path + ".tmp") != newText) ++killedMidWrite;
        ASSERT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
    }
    std::printf("killed in the middle of writing the temporary file in %d of %d rounds\n", killedMidWrite, round);
    EXPECT_GT(killedMidWrite, 0) << "no kill landed inside a write";
}

TEST(StoreFile, EveryFileTheWriterProducesIsStrictJsonWithTheSameValues) {
    if (std::system("/usr/bin/python3 -c 'import json' >/dev/null 2>&1") != 0) GTEST_SKIP() << "no python3";
    ScratchFolder folder;
    StructureStore store(folder.File("modbus_structures.json"));
    store.AddStructure(BuildDemoStructure());
    ModbusStructure awkward = Named("Quote \" backslash \\ line\nfeed\r tab\t semi;colon \xE2\x82\xAC \xF0\x9F\x98\x80", 13);
    awkward.description = "C:\\temp\\ \"x\"";
    awkward.ip = "::1";
    awkward.port = 65535;
    awkward.unitId = 255;
    awkward.rtuOverTcp = true;
    awkward.details[1].unit = "m\xC2\xB3/h";
    awkward.details[2].warnHigh = 1e-300;
    awkward.details[3].alarmHigh = -1.5e300;
    awkward.details[4].alarmOnChange = true;
    awkward.details[5].registerAddress = 65535;
    awkward.details[6].arraySize = -1;
    store.AddStructure(awkward);
    store.AddStructure(Named("", 0));
    ASSERT_TRUE(store.SaveStructures());

    // Python's json module reads the file strictly and prints every value: strings as hex of
    // their UTF-8 bytes, numbers by repr, in the file's order.
    const std::string script = folder.File("dump.py");
    WriteText(script,
              "import json, sys\n"
              "with open(sys.argv[1], encoding='utf-8') as f:\n"
              "    data = json.load(f, parse_constant=lambda c: sys.exit('constant ' + c))\n"
              "def show(v):\n"
              "    if isinstance(v, bool): return 'true' if v else 'false'\n"
              "    if isinstance(v, str): return 's' + v.encode('utf-8').hex()\n"
              "    if isinstance(v, int): return 'i' + str(v)\n"
              "    return 'd' + repr(v)\n"
              "assert list(data.keys()) == ['structures']\n"
              "for s in data['structures']:\n"
              "    print(' '.join(k + '=' + show(v) for k, v in s.items() if k != 'details'))\n"
              "    for d in s['details']:\n"
              "        print('  ' + ' '.join(k + '=' + show(v) for k, v in d.items()))\n");
    const std::string out = folder.File("dump.txt");
    ASSERT_EQ(std::system(("/usr/bin/python3 '" + script + "' '" + store.Path() + "' > '" + out + "'").c_str()), 0);

    const auto hex = [](const std::string& text) {
        std::string h = "s";
        char b[3];
        for (unsigned char c : text) {
            std::snprintf(b, sizeof b, "%02x", c);
            h += b;
        }
        return h;
    };
    const auto num = [](const std::string& line, const std::string& key) {
        const size_t at = line.find(" " + key + "=d");
        const size_t at2 = at == std::string::npos ? line.find(" " + key + "=i") : at;
        EXPECT_NE(at2, std::string::npos) << key;
        return at2 == std::string::npos ? -1.0 : std::strtod(line.c_str() + at2 + key.size() + 3, nullptr);
    };
    std::vector<std::string> lines;
    {
        const std::string text = ReadText(out);
        size_t start = 0;
        for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
            lines.push_back(text.substr(start, nl - start));
        }
    }
    size_t line = 0;
    for (const ModbusStructure& s : store.Structures()) {
        ASSERT_LT(line, lines.size());
        EXPECT_EQ(lines[line++], "id=i" + std::to_string(s.id) + " name=" + hex(s.name) + " description=" +
                                     hex(s.description) + " ip=" + hex(s.ip) + " port=i" + std::to_string(s.port) +
                                     " unitId=i" + std::to_string(s.unitId) +
                                     " rtuOverTcp=" + (s.rtuOverTcp ? "true" : "false"));
        for (const ModbusDetail& d : s.details) {
            ASSERT_LT(line, lines.size());
            const std::string& l = lines[line++];
            EXPECT_EQ(l.substr(0, l.find(" scale=")),
                      "  id=i" + std::to_string(d.id) + " name=" + hex(d.name) + " unit=" + hex(d.unit) +
                          " dataType=" + hex(Modbus::DataTypeName(d.dataType)) + " arraySize=i" +
                          std::to_string(d.arraySize) + " registerAddress=i" + std::to_string(d.registerAddress) +
                          " functionCode=i" + std::to_string(d.functionCode) +
                          " byteOrder=" + hex(Modbus::ByteOrderName(d.byteOrder)));
            EXPECT_NE(l.find(std::string(" alarmOnChange=") + (d.alarmOnChange ? "true" : "false") +
                             " widgetType=" + hex(Modbus::WidgetTypeName(d.widgetType))),
                      std::string::npos);
            // The doubles as Python read them are the doubles the store's own reader reads.
            const double values[] = {d.scale, d.offset, d.warnLow, d.warnHigh, d.alarmLow, d.alarmHigh};
            const char* keys[] = {"scale", "offset", "warnLow", "warnHigh", "alarmLow", "alarmHigh"};
            for (int k = 0; k < 6; ++k) {
                const double pythonValue = num(l, keys[k]);
                EXPECT_EQ(pythonValue, std::strtod(FormatJsonDouble(values[k]).c_str(), nullptr)) << keys[k] << " " << l;
            }
        }
    }
    EXPECT_EQ(line, lines.size());
}
#endif

TEST(StoreReader, EveryTruncationOfAFileIsSurvived) {
    StructureStore writer;
    writer.AddStructure(BuildDemoStructure());
    writer.AddStructure(Named("q\"\\\n", 2));
    const std::string text = writer.SerializeStructures();
    StructureStore store;
    size_t kept = 0;
    for (size_t length = 0; length <= text.size(); ++length) {
        ASSERT_TRUE(ParseSurvives(store, text.substr(0, length))) << length;
        kept = std::max(kept, store.Structures().size());
    }
    EXPECT_EQ(kept, 2u);
}

TEST(StoreReader, RandomlyDamagedFilesOnlyEverRaiseTheConversionErrors) {
    StructureStore writer;
    writer.AddStructure(BuildDemoStructure());
    const std::string text = writer.SerializeStructures();
    std::mt19937 random(20240611);
    const std::string alphabet = "{}[]\":, \n\\0123456789-+.eEtrufalsnip\x80\xFF";
    StructureStore store;
    const auto started = std::chrono::steady_clock::now();
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = text;
        const int edits = 1 + static_cast<int>(random() % 8);
        for (int e = 0; e < edits; ++e) {
            const size_t at = random() % damaged.size();
            switch (random() % 3) {
                case 0: damaged[at] = alphabet[random() % alphabet.size()]; break;
                case 1: damaged.erase(at, 1 + random() % 20); break;
                default: damaged.insert(at, 1, alphabet[random() % alphabet.size()]); break;
            }
            if (damaged.empty()) damaged.push_back('{');
        }
        ASSERT_TRUE(ParseSurvives(store, damaged)) << round;
        ASSERT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
    }
}

TEST(StoreReader, GarbageAndAdversarialTextsAreSurvivedQuickly) {
    std::mt19937 random(7);
    std::string noise(200000, '\0');
    for (char& c : noise) c = static_cast<char>(random() & 0xFF);
    const std::string deep = std::string(200000, '{') + "\"ip\": \"x\"" + std::string(200000, '}');
    std::string many;
    for (int i = 0; i < 20000; ++i) many += "{\"ip\": \"h\", \"details\": [{\"id\": " + std::to_string(i) + "}]}";
    std::string unclosed = "{\"ip\": \"a\", \"details\": [";
    for (int i = 0; i < 50000; ++i) unclosed += "{";
    const std::string texts[] = {
        noise,
        deep,
        many,
        unclosed,
        std::string(100000, '}'),
        std::string(100000, '"'),
        std::string(100000, '\\'),
        "{\"ip\":",
        "{\"ip\": \"",
        "{\"ip\": \"\\",
        "{\"id\": ",
        "\"ip\":{}",
        WithNuls(),
        "{\"ip\": \"a\", \"details\": [{\"name\": \"x\", \"scale\": nan, \"offset\": inf}]}",
        "{\"ip\": \"a\", \"unitId\": 9999999999}",
    };
    StructureStore store;
    const auto started = std::chrono::steady_clock::now();
    for (const std::string& text : texts) ASSERT_TRUE(ParseSurvives(store, text));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));

    store.ParseStructures(many);
    EXPECT_EQ(store.Structures().size(), 20000u);
    EXPECT_EQ(store.NextDetailId(), 20000);
    store.ParseStructures(deep);
    EXPECT_EQ(store.Structures().size(), 1u);
}
