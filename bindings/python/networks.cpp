#include <complex>
#include <cstddef>
#include <string>

#include <pybind11/complex.h>

#include "captures.h"
#include "workbench/failure.h"
#include "workbench/fixturefile.h"
#include "workbench/network.h"

namespace Tarnwick::Python {

using namespace DSO::Workbench;

namespace {

// (f [n], s [n, ports, ports], the reference as written)
py::tuple NetworkTuple(const std::string& path)
{
    FixtureFile file;
    {
        const py::gil_scoped_release released;
        file = DescribeFixture(ReadFixtureText(path), path);
    }
    if (!file.kind || *file.kind == FixtureKind::Table)
        throw DataFailure(path + ": is no Touchstone file by its name; expected .s1p, .s2p or .s4p");
    if (!file.Report().plainFailure.empty())
        throw DataFailure(path + ": " + Printable(file.Report().plainFailure));
    Network& network = file.network;
    if (network.frequency.empty())
        throw DataFailure(path + ": has no data; expected one line per frequency");
    const std::size_t points = network.frequency.size();
    const std::string reference = file.options ? file.options->reference : "50";
    return py::make_tuple(Adopt(std::move(network.frequency)),
                          Adopt(std::move(network.s), {points, network.ports, network.ports}), reference);
}

}  // namespace

void BindNetworks(py::module_& module)
{
    module.def("read_network", &NetworkTuple, py::arg("path"));
}

}  // namespace Tarnwick::Python
