// vqmath._core: the compiled half of the Python module. It converts the caller's matrices to
// the library's layout once, allocates result arrays as numpy arrays the library writes into,
// and runs every library call with the GIL released. The public functions, their checks and
// their documentation live in the pure-Python half (vqmath/__init__.py).

#include "LibraryCalls.h"
#include "UpperCsr.h"

#include "models/SolidModel.h"
#include "vqmath.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

namespace py = pybind11;
using namespace vqpy;

namespace {

using Doubles = py::array_t<double, py::array::c_style | py::array::forcecast>;

// Runs job without the GIL; a Ctrl-C pressed meanwhile is raised as KeyboardInterrupt once
// the library has returned (the library itself cannot be stopped half way).
template <typename Job>
auto Unlocked(Job job)
{
    auto result = [&] {
        py::gil_scoped_release release;
        return job();
    }();
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    return result;
}

// A numpy view of a vector owned by a Matrix object (kept alive through base).
template <typename T>
py::array View(const std::vector<T>& v, py::handle base)
{
    py::array_t<T> a({static_cast<py::ssize_t>(v.size())}, {static_cast<py::ssize_t>(sizeof(T))},
                     v.data(), base);
    a.attr("flags").attr("writeable") = false;
    return std::move(a);
}

py::array_t<double> ColumnMajor(py::ssize_t rows, py::ssize_t cols)
{
    return py::array_t<double, py::array::f_style>({rows, cols});
}

template <typename Index>
UpperCsr Compressed(long long n, py::array first, py::array second, const Doubles& data, Layout layout,
                    double tolerance)
{
    auto a = py::array_t<Index, py::array::c_style>::ensure(first);
    auto b = py::array_t<Index, py::array::c_style>::ensure(second);
    if (!a || !b) throw InputError("index arrays must be integer arrays");
    const long long count = data.size();
    const long long expectFirst = layout == Layout::Triplets ? count : n + 1;
    if (a.size() != expectFirst || (layout != Layout::Triplets && n < 1) || b.size() != count)
        throw InputError("index and value arrays of inconsistent lengths");
    const Index* pa = a.data();
    const Index* pb = b.data();
    const double* pv = data.data();
    return Unlocked([&] { return ToUpperCsr<Index>(n, layout, pa, pb, pv, count, tolerance); });
}

UpperCsr FromArrays(long long n, py::array first, py::array second, const Doubles& data,
                    const std::string& layout, double tolerance)
{
    const Layout l = layout == "csr" ? Layout::Rows : layout == "csc" ? Layout::Columns : Layout::Triplets;
    if (py::dtype::of<int32_t>().is(first.dtype()) && py::dtype::of<int32_t>().is(second.dtype()))
        return Compressed<int32_t>(n, first, second, data, l, tolerance);
    return Compressed<int64_t>(n, first, second, data, l, tolerance);
}

UpperCsr FromCsrMatrix(vqmath::models::CsrMatrix&& c)
{
    UpperCsr a;
    a.n = c.n;
    a.rowPointers = std::move(c.rowPointers);
    a.columnIndices = std::move(c.columnIndices);
    a.values = std::move(c.values);
    return a;
}

}  // namespace

PYBIND11_MODULE(_core, m)
{
    m.doc() = "Compiled core of vqmath; use the functions of the vqmath package.";

    py::class_<UpperCsr, std::shared_ptr<UpperCsr>>(m, "Matrix",
        "A symmetric matrix in the library's layout (upper triangle, 1-based compressed rows).")
        .def_property_readonly("n", [](const UpperCsr& a) { return a.n; })
        .def_property_readonly("nnz", [](const UpperCsr& a) { return a.Nnz(); })
        .def_property_readonly("shape", [](const UpperCsr& a) { return py::make_tuple(a.n, a.n); })
        .def_property_readonly("is_diagonal", &UpperCsr::IsDiagonal)
        .def("arrays",
             [](py::object self) {
                 const UpperCsr& a = self.cast<const UpperCsr&>();
                 return py::make_tuple(View(a.rowPointers, self), View(a.columnIndices, self),
                                       View(a.values, self));
             },
             "Read-only views (row pointers, column indices, values), 1-based.")
        .def("diagonal",
             [](const UpperCsr& a) {
                 py::array_t<double> d(a.n);
                 auto* p = d.mutable_data();
                 for (int i = 0; i < a.n; ++i) p[i] = a.values[a.rowPointers[i] - 1];
                 return d;
             })
        .def("multiply",
             [](const UpperCsr& a, py::array_t<double, py::array::f_style | py::array::forcecast> x) {
                 if (x.ndim() < 1 || x.ndim() > 2 || x.shape(0) != a.n)
                     throw InputError("the vectors must have " + std::to_string(a.n) + " rows");
                 const int cols = x.ndim() == 2 ? static_cast<int>(x.shape(1)) : 1;
                 py::array_t<double> y = x.ndim() == 2 ? ColumnMajor(a.n, cols) : py::array_t<double>(a.n);
                 const double* px = x.data();
                 double* py_ = y.mutable_data();
                 Unlocked([&] {
                     Multiply(a, px, py_, cols);
                     return 0;
                 });
                 return y;
             },
             "A @ X for a vector or the columns of a matrix.");

    m.def("from_arrays", &FromArrays, py::arg("n"), py::arg("first"), py::arg("second"),
          py::arg("data"), py::arg("layout"), py::arg("symmetry_tolerance"));
    m.def("from_dense",
          [](py::array_t<double, py::array::forcecast> a, double tolerance) {
              if (a.ndim() != 2 || a.shape(0) != a.shape(1))
                  throw InputError("a dense matrix must be square");
              const long long n = a.shape(0);
              const long long rs = a.strides(0) / static_cast<long long>(sizeof(double));
              const long long cs = a.strides(1) / static_cast<long long>(sizeof(double));
              const double* p = a.data();
              return Unlocked([&] { return DenseToUpperCsr(n, p, rs, cs, tolerance); });
          },
          py::arg("a"), py::arg("symmetry_tolerance"));
    m.def("from_diagonal",
          [](const Doubles& d) { return FromDiagonal(d.data(), static_cast<long long>(d.size())); });

    py::class_<Outcome>(m, "Outcome")
        .def_readonly("code", &Outcome::code)
        .def_readonly("message", &Outcome::message)
        .def_readonly("warning", &Outcome::warning)
        .def_readonly("warning_message", &Outcome::warningMessage)
        .def_readonly("equation", &Outcome::equation)
        .def_readonly("negative_pivots", &Outcome::negativePivots)
        .def_readonly("positive_pivots", &Outcome::positivePivots)
        .def_readonly("found", &Outcome::found);

    py::class_<CallSettings>(m, "CallSettings")
        .def(py::init<>())
        .def_readwrite("threads", &CallSettings::threads)
        .def_readwrite("out_of_core", &CallSettings::outOfCore)
        .def_readwrite("core_size", &CallSettings::coreSizeMb)
        .def_readwrite("working_directory", &CallSettings::workingDirectory);

    m.def("solve",
          [](const UpperCsr& k, py::array_t<double, py::array::forcecast> f, bool definite,
             const CallSettings& s) {
              if (f.ndim() != 2 || f.shape(0) != k.n)
                  throw InputError("the loads must have " + std::to_string(k.n) + " rows");
              const py::ssize_t cols = f.shape(1);
              // The solution overwrites a column-major copy of the loads: one copy in all.
              py::array_t<double> x = ColumnMajor(k.n, cols);
              auto in = f.unchecked<2>();
              double* px = x.mutable_data();
              for (py::ssize_t j = 0; j < cols; ++j)
                  for (py::ssize_t i = 0; i < k.n; ++i) px[j * k.n + i] = in(i, j);
              const Outcome o =
                  Unlocked([&] { return Solve(k, px, static_cast<int>(cols), definite, s); });
              return py::make_tuple(x, o);
          },
          py::arg("k"), py::arg("f"), py::arg("definite"), py::arg("settings"));

    m.def("eigen",
          [](const std::string& method, const UpperCsr& k, const UpperCsr& b, int count, double shift,
             double tolerance, double lower, double upper, int block, bool buckling, bool wantVectors,
             std::optional<Doubles> load, bool loadIsForce, const CallSettings& s) {
              if (b.n != k.n) throw InputError("the two matrices differ in order");
              EigenCall call;
              call.method = method;
              const bool dense = method == "lapack" || method == "jacobi";
              call.count = dense ? k.n : std::max(1, std::min(count, k.n));
              call.shift = shift;
              call.tolerance = tolerance;
              call.lower = lower;
              call.upper = upper;
              call.block = block;
              call.buckling = buckling;
              call.wantVectors = wantVectors || dense;
              call.loadIsForce = loadIsForce;
              if (load) {
                  if (load->size() != k.n) throw InputError("the load must have n entries");
                  call.load = load->data();
              }
              py::array_t<double> values(call.count);
              std::fill(values.mutable_data(), values.mutable_data() + call.count, 0.0);
              py::object vectors = py::none();
              double* pv = nullptr;
              if (call.wantVectors) {
                  py::array_t<double> v = ColumnMajor(k.n, call.count);
                  pv = v.mutable_data();
                  vectors = v;
              }
              double* pe = values.mutable_data();
              const Outcome o = Unlocked([&] { return Eigen(call, k, b, pe, pv, s); });
              return py::make_tuple(values, vectors, o);
          },
          py::arg("method"), py::arg("k"), py::arg("b"), py::arg("count"), py::arg("shift"),
          py::arg("tolerance"), py::arg("lower"), py::arg("upper"), py::arg("block"),
          py::arg("buckling"), py::arg("want_vectors"), py::arg("load"), py::arg("load_is_force"),
          py::arg("settings"));

    m.def("band",
          [](const UpperCsr& k, const UpperCsr& b, double lower, double upper, int maxModes,
             bool wantVectors, const CallSettings& s) {
              if (b.n != k.n) throw InputError("the two matrices differ in order");
              if (maxModes < 1) throw InputError("max_modes must be at least 1");
              py::array_t<double> values(maxModes);
              std::fill(values.mutable_data(), values.mutable_data() + maxModes, 0.0);
              py::object vectors = py::none();
              double* pv = nullptr;
              if (wantVectors) {
                  py::array_t<double> v = ColumnMajor(k.n, maxModes);
                  pv = v.mutable_data();
                  vectors = v;
              }
              double* pe = values.mutable_data();
              int count = 0;
              const Outcome o =
                  Unlocked([&] { return Band(k, b, lower, upper, maxModes, pe, pv, &count, s); });
              return py::make_tuple(values, vectors, count, o);
          },
          py::arg("k"), py::arg("b"), py::arg("lower"), py::arg("upper"), py::arg("max_modes"),
          py::arg("want_vectors"), py::arg("settings"));

    m.def("sturm_count",
          [](const UpperCsr& k, const UpperCsr& b, double sigma, const CallSettings& s) {
              if (b.n != k.n) throw InputError("the two matrices differ in order");
              int count = 0;
              const Outcome o = Unlocked([&] { return SturmCount(k, b, sigma, s, &count); });
              return py::make_tuple(count, o);
          },
          py::arg("k"), py::arg("b"), py::arg("sigma"), py::arg("settings"));

    if (EffectiveMassAvailable())
        m.def("effective_mass",
              [](const UpperCsr& mass, py::array_t<double, py::array::f_style | py::array::forcecast> shapes,
                 const Doubles& direction) {
                  if (shapes.ndim() != 2 || shapes.shape(0) != mass.n || direction.size() != mass.n)
                      throw InputError("mode shapes and direction must have n rows");
                  const int modes = static_cast<int>(shapes.shape(1));
                  py::array_t<double> participation(modes), fraction(modes);
                  const double* ps = shapes.data();
                  const double* pd = direction.data();
                  double* pp = participation.mutable_data();
                  double* pf = fraction.mutable_data();
                  const Outcome o =
                      Unlocked([&] { return EffectiveMass(mass, modes, ps, pd, pp, pf); });
                  return py::make_tuple(participation, fraction, o);
              },
              py::arg("m"), py::arg("shapes"), py::arg("direction"));

    m.def("solid_model",
          [](int equations, bool consistent) {
              auto p = vqmath::models::SolidModel::ForEquations(equations);
              p.consistentMass = consistent;
              auto model = Unlocked([&] { return std::make_unique<vqmath::models::SolidModel>(p); });
              auto k = FromCsrMatrix(vqmath::models::CsrMatrix(model->Stiffness()));
              const auto& lumped = model->LumpedMass();
              py::array_t<double> mass(static_cast<py::ssize_t>(lumped.size()));
              std::copy(lumped.begin(), lumped.end(), mass.mutable_data());
              py::object consistentMass = py::none();
              if (consistent) consistentMass = py::cast(FromCsrMatrix(vqmath::models::CsrMatrix(model->ConsistentMass())));
              return py::make_tuple(k, mass, consistentMass);
          },
          py::arg("equations"), py::arg("consistent") = false,
          "A clamped steel bar of 8-node hexahedra with about this many equations: (K, lumped "
          "mass diagonal, consistent mass or None).");

    m.def("library_version", [] {
        int major = 0, minor = 0, patch = 0, build = 0, date = 0;
        VQ_GetMathLibVersion(&major, &minor, &patch, &build, &date);
        return py::make_tuple(major, minor, patch, build, date);
    });

    VQ_InitializeLibrary();
}
