// Captures by the thousand: what a worker process runs, and the table that its rows go into.
#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "batches.h"
#include "pictures/batchpicture.h"
#include "workbench/batch.h"
#include "workbench/joined.h"
#include "workbench/pattern.h"
#include "workbench/units.h"

namespace Tarnwick::Python {

using namespace DSO::Workbench;

namespace {

namespace py = pybind11;
using Cells = std::vector<std::string>;

Cells CellsOf(const BatchRow& row)
{
    return {row.Cells().begin(), row.Cells().end()};
}

BatchRow RowOf(const Cells& cells)
{
    BatchRow row;
    if (cells.size() != kBatchColumns)
        throw std::invalid_argument(fmt::format("batch: a row has {} cells; expected {}", cells.size(), kBatchColumns));
    for (std::size_t k = 0; k < cells.size(); ++k)
        row[static_cast<BatchColumn>(k)] = cells[k];
    return row;
}

BatchInput InputOf(const std::string& chain, const std::string& name, const std::string& folder,
                   const std::string& coding, double baud, double samplesPerUi, int patternLength, bool whole,
                   std::optional<std::size_t> skipLines, const std::string& column, double sampleRate, double scale,
                   bool eyes)
{
    BatchInput input{.chain = ChainFile::FromText(chain, name), .whole = whole, .folder = folder, .threads = 1};
    if (!coding.empty()) {
        input.facts.coding = CodingOf(coding);
        if (input.facts.coding == SIGNAL_CODING_UNKNOWN)
            throw std::invalid_argument(fmt::format("batch: coding is \"{}\"; expected one of {}", coding,
                                                    DSO::Workbench::Joined(DSO::Workbench::CodingNames(), ", ")));
    }
    input.facts.symbolRateGBd = baud;
    input.facts.samplesPerUi = samplesPerUi;
    input.facts.patternLengthUi = patternLength;
    input.reading = {skipLines, column, sampleRate * kGiga, scale};
    if (eyes)
        input.picture = App::BatchPictureIn(folder);
    input.chainChecksum = BatchChecksum(input);
    return input;
}

std::pair<std::vector<std::pair<std::string, std::string>>, std::vector<std::string>> PlanOf(const Cells& captures)
{
    const BatchPlan plan = PlanBatch(captures);
    std::vector<std::pair<std::string, std::string>> jobs;
    jobs.reserve(plan.jobs.size());
    for (const BatchJob& job : plan.jobs)
        jobs.emplace_back(job.capture, job.name);
    return {jobs, plan.notes};
}

std::vector<Cells> TableOf(const std::string& text, const std::string& name)
{
    std::vector<Cells> rows;
    for (const BatchRow& row : ReadBatchTable(text, name))
        rows.push_back(CellsOf(row));
    return rows;
}

}  // namespace

void BindBatches(py::module_& module)
{
    using Released = py::call_guard<py::gil_scoped_release>;
    py::class_<BatchInput>(module, "Batch", "A chain and what is the same for all captures that it is run on.")
        .def(py::init(&InputOf), py::arg("chain"), py::arg("name"), py::arg("folder"), py::arg("coding") = "",
             py::arg("baud") = 0.0, py::arg("samples_per_ui") = 0.0, py::arg("pattern_length") = 0,
             py::arg("whole") = false, py::arg("skip_lines") = std::nullopt, py::arg("column") = "",
             py::arg("sample_rate") = 0.0, py::arg("scale") = 1.0, py::arg("eyes") = false)
        .def(
            "run",
            [](const BatchInput& input, const std::string& capture, const std::string& name) {
                return CellsOf(RunCapture(input, {capture, name}));
            },
            py::arg("capture"), py::arg("name"), Released())
        .def(
            "is_up_to_date",
            [](const BatchInput& input, const Cells& row, const std::string& capture, const std::string& name) {
                return IsUpToDate(RowOf(row), input, {capture, name}) &&
                       (!input.picture || std::filesystem::exists(App::BatchPictureFile(input.folder, name)));
            },
            py::arg("row"), py::arg("capture"), py::arg("name"), Released());
    module.def("plan_batch", &PlanOf, py::arg("captures"));
    module.def("batch_table_head", &BatchTableHead);
    module.def(
        "batch_table_row", [](const Cells& row) { return BatchTableRow(RowOf(row)); }, py::arg("row"));
    module.def("read_batch_table", &TableOf, py::arg("text"), py::arg("name"));
}

}  // namespace Tarnwick::Python
