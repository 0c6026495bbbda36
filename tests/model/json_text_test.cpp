#include "model/json_text.h"

#include <gtest/gtest.h>

#include <stdexcept>

TEST(EscapeJsonString, EscapesTheFiveCharactersOnly) {
    EXPECT_EQ(EscapeJsonString("a\"b\\c\nd\re\tf"), "a\\\"b\\\\c\\nd\\re\\tf");
    // Other control bytes and UTF-8 pass unchanged; there is no \u escape.
    EXPECT_EQ(EscapeJsonString(std::string("\x01\x1F\x7F", 3)), std::string("\x01\x1F\x7F", 3));
    EXPECT_EQ(EscapeJsonString("\xC2\xB0" "C; \xE2\x82\xAC"), "\xC2\xB0" "C; \xE2\x82\xAC");
    EXPECT_EQ(EscapeJsonString(""), "");
    EXPECT_EQ(EscapeJsonString("/"), "/");
}

TEST(UnescapeJsonString, ReversesTheFiveEscapes) {
    EXPECT_EQ(UnescapeJsonString("a\\\"b\\\\c\\nd\\re\\tf"), "a\"b\\c\nd\re\tf");
}

TEST(UnescapeJsonString, KeepsUnknownEscapesAndATrailingBackslash) {
    EXPECT_EQ(UnescapeJsonString("\\u00e4"), "\\u00e4");
    EXPECT_EQ(UnescapeJsonString("a\\/b"), "a\\/b");
    EXPECT_EQ(UnescapeJsonString("end\\"), "end\\");
    EXPECT_EQ(UnescapeJsonString("\\"), "\\");
    EXPECT_EQ(UnescapeJsonString("\\\\\\"), "\\\\");
}

TEST(JsonStringValue, FindsTheFirstOccurrenceAndUnescapes) {
    const std::string text = "{\"name\": \"Pump \\\"A\\\"\", \"inner\": {\"name\": \"second\"}}";
    EXPECT_EQ(JsonStringValue(text, "name"), "Pump \"A\"");
    EXPECT_EQ(JsonStringValue(text, "missing"), "");
}

TEST(JsonStringValue, NeedsExactlyOneBlankAfterTheColon) {
    EXPECT_EQ(JsonStringValue("{\"name\":\"x\"}", "name"), "");
    EXPECT_EQ(JsonStringValue("{\"name\":  \"x\"}", "name"), "");
    EXPECT_EQ(JsonStringValue("{\"name\": \"x\"}", "name"), "x");
}

TEST(JsonStringValue, UnclosedValueIsEmpty) { EXPECT_EQ(JsonStringValue("{\"name\": \"abc", "name"), ""); }

TEST(JsonStringValue, KeyIsFoundInsideAnotherStringValue) {
    // A plain substring search: the key text inside the description is found first.
    const std::string text = "\"description\": \"see \\\"ip\\\": \", \"name\": \"x\"";
    EXPECT_EQ(JsonStringValue(text, "name"), "x");
    EXPECT_EQ(JsonStringValue("\"a\": \"\"name\": \"inner\"\", \"name\": \"outer\"", "name"), "inner");
}

TEST(JsonStringValue, AValueEndingInABackslashRunsOnToTheNextQuote) {
    // "a\\" ends in an escaped backslash, but the quote after it is preceded by a backslash and so
    // is not taken as the end.
    const std::string text = "\"name\": \"a\\\\\",\n  \"unit\": \"V\"";
    EXPECT_EQ(JsonStringValue(text, "name"), "a\\\",\n  ");
    EXPECT_EQ(JsonStringValue(text, "unit"), "V");
}

TEST(JsonLiteralValue, RunsToCommaLineFeedOrBraceAndTrimsTheEnd) {
    EXPECT_EQ(JsonLiteralValue("\"port\": 502,\n", "port"), "502");
    EXPECT_EQ(JsonLiteralValue("\"port\": 502  \r\n", "port"), "502");
    EXPECT_EQ(JsonLiteralValue("\"port\": 502}", "port"), "502");
    EXPECT_EQ(JsonLiteralValue("\"port\": 502", "port"), "502");
    EXPECT_EQ(JsonLiteralValue("\"port\": ,", "port"), "");
    EXPECT_EQ(JsonLiteralValue("\"port\":502,", "port"), "");
    EXPECT_EQ(JsonLiteralValue("\"rtuOverTcp\": true\n", "rtuOverTcp"), "true");
    // Leading blanks stay; the conversion skips them.
    EXPECT_EQ(JsonLiteralValue("\"port\":   7,", "port"), "  7");
    // A string value is read with its quotes.
    EXPECT_EQ(JsonLiteralValue("\"ip\": \"1.2.3.4\",", "ip"), "\"1.2.3.4\"");
}

TEST(ConvertToInt, TakesTheLeadingDecimalInteger) {
    EXPECT_EQ(ConvertToInt("12abc"), 12);
    EXPECT_EQ(ConvertToInt("  -7"), -7);
    EXPECT_EQ(ConvertToInt("+5"), 5);
    EXPECT_EQ(ConvertToInt("0x1A"), 0);
    EXPECT_EQ(ConvertToInt("3.9"), 3);
    EXPECT_EQ(ConvertToInt("2147483647"), 2147483647);
    EXPECT_EQ(ConvertToInt("-2147483648"), INT32_MIN);
}

TEST(ConvertToInt, NoDigitsThrowsInvalidArgument) {
    for (const char* text : {"", "abc", "-", " ", "\"5\"", "true"}) {
        try {
            ConvertToInt(text);
            ADD_FAILURE() << "no error for '" << text << "'";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "invalid stoi argument");
        }
    }
}

TEST(ConvertToInt, BeyondThirtyTwoBitsThrowsOutOfRange) {
    for (const char* text : {"2147483648", "-2147483649", "99999999999999999999999"}) {
        try {
            ConvertToInt(text);
            ADD_FAILURE() << "no error for '" << text << "'";
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "stoi argument out of range");
        }
    }
}

TEST(ConvertToDouble, TakesTheLeadingNumber) {
    EXPECT_EQ(ConvertToDouble("0.1"), 0.1);
    EXPECT_EQ(ConvertToDouble("1e-05"), 1e-05);
    EXPECT_EQ(ConvertToDouble(" -50xyz"), -50.0);
    EXPECT_EQ(ConvertToDouble("1e+06"), 1e6);
}

TEST(ConvertToDouble, ErrorsCarryTheStandardTexts) {
    try {
        ConvertToDouble("x1");
        ADD_FAILURE();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "invalid stod argument");
    }
    try {
        ConvertToDouble("1e999");
        ADD_FAILURE();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "stod argument out of range");
    }
}

TEST(FormatJsonDouble, GeneralFormatWithSixSignificantDigits) {
    EXPECT_EQ(FormatJsonDouble(1.0), "1");
    EXPECT_EQ(FormatJsonDouble(0.1), "0.1");
    EXPECT_EQ(FormatJsonDouble(-50.0), "-50");
    EXPECT_EQ(FormatJsonDouble(0.001), "0.001");
    EXPECT_EQ(FormatJsonDouble(0.00001), "1e-05");
    EXPECT_EQ(FormatJsonDouble(1000000.0), "1e+06");
    EXPECT_EQ(FormatJsonDouble(123456.7), "123457");
    EXPECT_EQ(FormatJsonDouble(3.14159265), "3.14159");
    EXPECT_EQ(FormatJsonDouble(0.0), "0");
}
