#include "workbench/htmlreport.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <string_view>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "framework/filenames.h"
#include "workbench/eyereport.h"
#include "workbench/failure.h"
#include "workbench/plumbing/chainjson.h"
#include "workbench/plumbing/jsontext.h"
#include "workbench/plumbing/reportbundle.h"
#include "workbench/plumbing/reportdocument.h"
#include "workbench/plumbing/sha256.h"
#include "workbench/plumbing/wholefile.h"

namespace Tarnwick::DSO::Workbench {

namespace {

constexpr std::size_t kMostBytes = 4'000'000;
constexpr std::size_t kMostPlainRows = 200;  // of the table that is there without the script

std::string Utf8Of(const std::string& text)
{
    return PlainText(Json(text).Text());
}

// As the content of an element or an attribute in double quotes.
std::string Escaped(const std::string& text)
{
    std::string escaped;
    for (const char letter : Utf8Of(text)) {
        switch (letter) {
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            case '&': escaped += "&amp;"; break;
            case '"': escaped += "&quot;"; break;
            default: escaped += letter;
        }
    }
    return escaped;
}

void ReplaceAll(std::string& text, std::string_view what, std::string_view by)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
}

// JSON within an element: these letters stand in its texts alone, where an escape means the same.
std::string DataOf(const Json& document)
{
    const std::string text = document.Text();
    std::string data;
    data.reserve(text.size() + text.size() / 16);
    for (const char letter : text) {
        if (letter == '<' || letter == '>' || letter == '&')
            data += fmt::format("\\u{:04x}", static_cast<unsigned>(letter));
        else
            data += letter;
    }
    ReplaceAll(data, "\xe2\x80\xa8", "\\u2028");
    ReplaceAll(data, "\xe2\x80\xa9", "\\u2029");
    return data;
}

using Cells = std::vector<std::string>;

std::string RowOfCells(const Cells& cells, const char* element)
{
    std::string row = "<tr>";
    for (const std::string& cell : cells)
        row += fmt::format("<{0}>{1}</{0}>", element, Escaped(cell));
    return row + "</tr>\n";
}

std::string PageOf(const Json& document, const ReportHead& head, const std::string& plainTable)
{
    const BundledText script = ReportScript();
    const BundledText style = ReportStyle();
    const std::string title = Escaped(head.title);
    std::string page = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src '{}'; style-src '{}'; "
        "base-uri 'none'; form-action 'none'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light dark\">\n<meta name=\"generator\" content=\"tarnwick {}\">\n"
        "<title>{}</title>\n<style>",
        script.hash, style.hash, Escaped(head.version), title);
    page += style.text;
    page += fmt::format(
        "</style>\n</head>\n<body>\n<main>\n<h1>{}</h1>\n<p>tarnwick {}, {}</p>\n<noscript><p>The plots need a browser "
        "that runs scripts.</p></noscript>\n{}</main>\n<script type=\"application/json\" id=\"tarnwick-report\">",
        title, Escaped(head.version), Escaped(head.date), plainTable);
    page += DataOf(document);
    page += "</script>\n<script>";
    page += script.text;
    page += "</script>\n</body>\n</html>\n";
    return page;
}

std::string PlainTableOf(const RunReport& report)
{
    std::string rows =
        RowOfCells({"stage", "eye open %", "eye widths UI", "eye heights V", "BER", "mean V", "rms V", "p-p V"}, "th");
    for (const StageReport& stage : report.stages)
        rows += RowOfCells({stage.name, OpeningsText(stage.eye), WidthsText(stage.eye), HeightsText(stage.eye),
                            BerText(stage.eye.ber), fmt::format("{:.4g}", stage.mean), fmt::format("{:.4g}", stage.rms),
                            fmt::format("{:.4g}", stage.peakToPeak)},
                           "td");
    return "<table>\n" + rows + "</table>\n";
}

std::string PlainTableOf(const TableReport& report)
{
    Cells names;
    for (const TableReport::Column& column : report.columns)
        names.push_back(column.unit.empty() ? column.label : column.label + " " + column.unit);
    std::string rows = RowOfCells(names, "th");
    for (std::size_t k = 0; k < std::min(report.rows.size(), kMostPlainRows); ++k) {
        Cells cells;
        for (const TableReport::Value& value : report.rows[k].values) {
            const double* const number = std::get_if<double>(&value);
            const std::string* const text = std::get_if<std::string>(&value);
            cells.push_back(number != nullptr ? fmt::format("{:.5g}", *number) : text != nullptr ? *text : "");
        }
        if (!report.rows[k].failure.empty())
            cells.push_back(report.rows[k].failure);
        rows += RowOfCells(cells, "td");
    }
    if (report.rows.size() > kMostPlainRows)
        rows += RowOfCells({fmt::format("and {} more", report.rows.size() - kMostPlainRows)}, "td");
    return "<table>\n" + rows + "</table>\n";
}

}  // namespace

ReportSource SourceOf(const std::filesystem::path& file, std::optional<std::size_t> samples)
{
    ReportSource source{file.string(), samples};
    std::error_code error;
    if (std::filesystem::is_regular_file(Openable(file), error))
        source.sha256 = HexOf(Sha256(ReadWholeFile(file)));
    return source;
}

std::string ReportDate()
{
    const auto now = std::chrono::time_point_cast<std::chrono::seconds>(std::chrono::system_clock::now());
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::chrono::system_clock::to_time_t(now)));
}

std::string HtmlReport(const RunReport& report, const ReportHead& head)
{
    return PageOf(DocumentOf(report, head), head, PlainTableOf(report));
}

std::string HtmlReport(const TableReport& report, const ReportHead& head)
{
    const std::string plain = PlainTableOf(report);
    auto eyes = static_cast<std::size_t>(std::count_if(report.rows.begin(), report.rows.end(),
                                                       [](const TableReport::Row& row) { return row.eye != nullptr; }));
    // Thousands of rows leave no room for eyes.
    for (;; eyes /= 2) {
        std::string page = PageOf(DocumentOf(report, head, eyes), head, plain);
        if (page.size() < kMostBytes || eyes == 0)
            return page;
    }
}

}  // namespace Tarnwick::DSO::Workbench
