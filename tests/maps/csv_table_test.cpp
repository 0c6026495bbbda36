// The CSV reader under the register maps: separator from the header, byte-order mark, quoted
// fields with separators, quotes and line breaks inside, CR LF, and the physical line of every
// field.
#include <gtest/gtest.h>

#include "common/localizer.h"
#include "maps/csv_table.h"

using namespace maps;

namespace {

std::vector<std::vector<std::string>> Texts(const CsvTable& table) {
    std::vector<std::vector<std::string>> rows;
    for (const CsvRecord& r : table.records) {
        std::vector<std::string> row;
        for (const CsvField& f : r.fields) row.push_back(f.text);
        rows.push_back(row);
    }
    return rows;
}

TEST(CsvTableTest, SemicolonsQuotesBomAndCrLf) {
    Localizer::SetAllLanguages(1);
    CsvTable table;
    std::string error;
    ASSERT_TRUE(
        ReadCsv("\xEF\xBB\xBFname; address ;unit\r\n\"a;b\";0x10; \"say \"\"hi\"\"\" \r\n\"two\r\nlines\";2;\r\n",
                table, error))
        << error;
    EXPECT_EQ(table.separator, ';');
    EXPECT_EQ(Texts(table),
              (std::vector<std::vector<std::string>>{
                  {"name", "address", "unit"}, {"a;b", "0x10", "say \"hi\""}, {"two\r\nlines", "2", ""}}));
    EXPECT_EQ(table.records[2].line, 3u);
    EXPECT_EQ(table.records[2].fields[1].line, 4u);  // after the line break inside the quotes
}

TEST(CsvTableTest, CommaWhenTheHeaderHasNoSemicolonAndBlankRows) {
    CsvTable table;
    std::string error;
    ASSERT_TRUE(ReadCsv("name,\"a;b\",c\n\n1,2,3\n,,\n4,\"5,6\",7", table, error));
    EXPECT_EQ(table.separator, ',');
    ASSERT_EQ(table.records.size(), 5u);
    EXPECT_TRUE(table.records[1].IsBlank());
    EXPECT_TRUE(table.records[3].IsBlank());
    EXPECT_FALSE(table.records[2].IsBlank());
    EXPECT_EQ(table.records[4].line, 5u);
    EXPECT_EQ(table.records[4].fields[1].text, "5,6");
    EXPECT_EQ(table.records[4].fields[2].text, "7");
}

TEST(CsvTableTest, BlankLinesBeforeTheHeader) {
    CsvTable table;
    std::string error;
    ASSERT_TRUE(ReadCsv("\xEF\xBB\xBF\r\n\r\nname;address\r\nx;1,5\r\n", table, error));
    EXPECT_EQ(table.separator, ';');
    ASSERT_EQ(table.records.size(), 4u);
    EXPECT_EQ(table.records[2].line, 3u);
    EXPECT_EQ(table.records[3].fields[1].text, "1,5");
}

TEST(CsvTableTest, BrokenQuotes) {
    Localizer::SetAllLanguages(1);
    CsvTable table;
    std::string error;
    EXPECT_FALSE(ReadCsv("a;b\n1;\"open\n\n", table, error));
    EXPECT_EQ(error, "line 2: a quoted field is not closed");
    EXPECT_FALSE(ReadCsv("a;b\n\"x\"y;2\n", table, error));
    EXPECT_EQ(error, "line 2: text after the closing quote of a field");
    Localizer::SetAllLanguages(0);
    EXPECT_FALSE(ReadCsv("a;b\n1;\"open\n", table, error));
    EXPECT_EQ(error, "Zeile 2: ein Feld in Anfuehrungszeichen wird nicht geschlossen");
    Localizer::SetAllLanguages(1);
}

TEST(CsvTableTest, QuotingOnWrite) {
    EXPECT_EQ(CsvQuote("plain", ','), "plain");
    EXPECT_EQ(CsvQuote("a;b", ','), "a;b");
    EXPECT_EQ(CsvQuote("a,b", ','), "\"a,b\"");
    EXPECT_EQ(CsvQuote("a;b", ';'), "\"a;b\"");
    EXPECT_EQ(CsvQuote("say \"hi\"", ','), "\"say \"\"hi\"\"\"");
    EXPECT_EQ(CsvQuote("two\nlines", ','), "\"two\nlines\"");
    EXPECT_EQ(CsvQuote(" padded", ','), "\" padded\"");
    EXPECT_EQ(CsvQuote("", ','), "");
}

}  // namespace
