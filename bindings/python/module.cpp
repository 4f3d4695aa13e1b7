// The compiled half of the Python package: tarnwick/ beside this file is what users see of it.
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include <pybind11/pybind11.h>

#include "batches.h"
#include "captures.h"
#include "eye.h"
#include "filter.h"
#include "filters/filters/patternlockfailed.h"
#include "workbench/chainkeys.h"
#include "workbench/failure.h"

namespace {

namespace py = pybind11;
using namespace Tarnwick;

// What the library throws as what Python code expects. Everything that a caller can mend is a ValueError with its text.
void RegisterFailures(py::module_& module)
{
    static const py::handle noLock = py::exception<DSO::PatternLockFailed>(module, "PatternLockFailed").release();
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const DSO::PatternLockFailed& failure) {
            PyErr_SetString(noLock.ptr(), failure.what());
        } catch (const DSO::Workbench::NoPatternLockFailure& failure) {
            PyErr_SetString(noLock.ptr(), failure.what());
        } catch (const DSO::Workbench::UsageFailure& failure) {
            PyErr_SetString(PyExc_ValueError, failure.what());
        } catch (const DSO::Workbench::DataFailure& failure) {
            PyErr_SetString(PyExc_ValueError, failure.what());
        } catch (const std::out_of_range& failure) {  // numbers of a file, no index of the caller's
            PyErr_SetString(PyExc_ValueError, failure.what());
        }
    });
}

}  // namespace

PYBIND11_MODULE(_core, module)
{
    module.doc() = "Filters and workbench for the package tarnwick; not to be used by itself.";
    module.attr("version") = TARNWICK_VERSION;
    RegisterFailures(module);
    module.def("chain_keys", &DSO::Workbench::ChainKeysAsJson);
    Python::BindFilter(module);
    Python::BindEye(module);
    Python::BindCaptures(module);
    Python::BindChains(module);
    Python::BindNetworks(module);
    Python::BindBatches(module);
}
