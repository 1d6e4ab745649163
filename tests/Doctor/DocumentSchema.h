#pragma once

#include <rapidjson/document.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <fstream>
#include <iterator>
#include <string>

namespace Ombry::Tests {

/// What a document of the doctor breaks of its schema; empty for nothing.
inline std::string SchemaViolation(const std::string& text) {
    std::ifstream file(OMBRY_SOURCE_DIR "/Doctor/ombry-doctor.schema.json");
    const std::string schemaText{std::istreambuf_iterator<char>(file), {}};
    rapidjson::Document parsed, document;
    parsed.Parse(schemaText.c_str());
    // One for each call: it keeps the state of a search for a pattern, and threads would meet there.
    const rapidjson::SchemaDocument schema(parsed);
    if (document.Parse<rapidjson::kParseValidateEncodingFlag>(text.c_str()).HasParseError())
        return "the document is no JSON";
    rapidjson::SchemaValidator validator(schema);
    if (document.Accept(validator)) return "";
    rapidjson::StringBuffer at;
    validator.GetInvalidDocumentPointer().StringifyUriFragment(at);
    return std::string(at.GetString()) + " " + validator.GetInvalidSchemaKeyword();
}

}  // namespace Ombry::Tests
