// What `import quillmark` is made of. All that waits or computes runs without the interpreter's lock.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "CommandLine/CheckSources.h"
#include "CommandLine/FixedAnswers.h"
#include "QuillmarkKit/CheckWalk.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Verifier.h"
#include "QuillmarkKit/Version.h"
#include "Settings/ChosenResolver.h"
#include "Settings/CurrentTime.h"
#include "Wording/Banner.h"
#include "Wording/TextReport.h"
#include "Wording/Wording.h"

namespace py = pybind11;

namespace quillmark {

namespace {

constexpr std::chrono::milliseconds betweenSignals{100};

/// Why something is no message.
struct NoMessage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

Reader readerOf(std::string_view language) {
    Reader reader;
    reader.language = languageOf(language);
    if (language != factsOf(reader.language).code) {
        std::string known;
        for (const Language each : allLanguages())
            known += (known.empty() ? "\"" : ", \"") + std::string(factsOf(each).code) + '"';
        throw py::value_error("language is one of " + known);
    }
    return reader;
}

struct CheckedReport {
    ProofReport report = {};
    std::optional<std::string> path = {};

    Banner banner(std::string_view language) const { return bannerOf(report, readerOf(language)); }
    std::vector<std::string> cautions(std::string_view language) const {
        std::vector<std::string> list;
        for (const BannerLine& line : banner(language).cautions) list.push_back(line.text);
        return list;
    }
};

/// In place of a report.
struct Problem {
    std::string text = {};
    std::optional<std::string> path = {};
};

struct FoundOne {
    std::shared_ptr<const FoundMessage> message = {};  ///< null when there is a problem
    MessagePlace place = {};
    std::optional<std::string> problem = {};
};

FoundMessage copyOf(const FoundMessage& found) {
    return {ByteBuffer(found.bytes.view()), found.place, found.mode, found.facts, found.apart};
}

std::optional<std::string> textOf(const std::optional<std::string>& bytes) {
    return bytes ? std::optional(repairedUTF8(*bytes)) : std::nullopt;
}

std::string problemOf(const Refusal& refusal, const MessagePlace& place) {
    const auto path = place.pathName();
    return problemLine(refusal, path ? path : place.name(), Reader());
}

/// The messages of a file of any form, of a folder or of an archive; those attached inside others after
/// these.
class Messages {
public:
    Messages(std::string path, bool attached) : m_reader(std::move(path)), m_goesInside(attached) {}

    /// Nothing at the end.
    std::optional<FoundOne> next() {
        const std::lock_guard lock(m_mutex);
        for (;;) {
            if (!m_walk) {
                auto found = m_reader.next();
                if (!found) return std::nullopt;
                // Goes the way of a check without checking.
                const auto take = [this](const MailMessage&, FoundMessage message) {
                    m_taken = std::make_shared<const FoundMessage>(std::move(message));
                    return ProofReport();
                };
                m_walk.emplace(*std::move(found), take,
                               CheckWalk::Options{.keepsBytes = true, .goesInside = m_goesInside});
            }
            if (auto outcome = m_walk->next()) {
                if (const auto* refusal = std::get_if<Refusal>(&outcome->value))
                    return FoundOne{{}, outcome->place, problemOf(*refusal, outcome->place)};
                return FoundOne{std::exchange(m_taken, nullptr), std::move(outcome->place), {}};
            }
            m_walk.reset();
        }
    }

private:
    std::mutex m_mutex = {};
    MailboxReader m_reader;
    const bool m_goesInside;
    std::optional<CheckWalk> m_walk = {};
    std::shared_ptr<const FoundMessage> m_taken = {};
};

/// Asks an object of Python's: its `lookup(name, type)` gives a list of texts, None for a name without such
/// records, False for one that doesn't exist, or raises whatever it likes. An exception is a failed lookup;
/// what is to end the program (KeyboardInterrupt, SystemExit) is kept until it is taken.
class PythonResolver : public DNSResolver {
public:
    explicit PythonResolver(py::object object) : m_object(std::move(object)) {}
    ~PythonResolver() override {
        const py::gil_scoped_acquire lock;
        m_object = py::object();
    }
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience&) override {
        const py::gil_scoped_acquire lock;
        try {
            const py::object answer = m_object.attr("lookup")(std::string(name), std::string(mnemonic(type)));
            if (answer.is_none()) return DNSAnswer::noData();
            if (answer.is(py::bool_(false))) return DNSAnswer::nxdomain();
            auto data = answer.cast<std::vector<std::string>>();
            for (std::string& record : data) record = repairedUTF8(record);
            return data.empty() ? DNSAnswer::noData() : DNSAnswer::records(std::move(data));
        } catch (py::error_already_set& error) {
            if (!error.matches(PyExc_Exception)) m_ending = std::current_exception();
            throw DNSLookupError(repairedUTF8(error.what()));
        } catch (const std::exception& error) {  // of what is no list of texts
            throw DNSLookupError(repairedUTF8(error.what()));
        }
    }
    /// With the interpreter's lock, as it guards this, too.
    std::exception_ptr takeEnding() { return std::exchange(m_ending, nullptr); }

private:
    py::object m_object;
    std::exception_ptr m_ending = {};
};

using Source = std::variant<std::string, std::shared_ptr<const FoundMessage>, Problem>;

class Checker {
public:
    Checker(std::vector<std::string> answers, const py::object& resolver, std::optional<std::string> at,
            bool domainAge, bool undo, std::string dmarc)
        : m_at(at) {
        CheckCommand command;
        command.dnsFiles = std::move(answers);
        if (py::isinstance<py::str>(resolver)) command.resolver = resolver.cast<std::string>();
        command.at = std::move(at);
        command.domainAge = domainAge;
        command.noUndo = !undo;
        if (dmarc != "7489" && dmarc != "9989") throw py::value_error("dmarc is \"7489\" or \"9989\"");
        command.dmarc = std::move(dmarc);
        if (command.resolver && !isResolverChoice(*command.resolver))
            throw py::value_error("resolver is \"system\", an https address or an object with lookup()");
        if (command.at && !parsedRFC3339(*command.at))
            throw py::value_error("at is a time such as 2026-11-21T10:00:00Z");
        const bool isFixed = !command.dnsFiles.empty();
        m_sources = std::make_unique<CheckSources>(command);
        const bool isObject = !resolver.is_none() && !command.resolver;
        const bool canAsk = py::hasattr(resolver, "lookup") && !PyType_Check(resolver.ptr()) &&
                            PyCallable_Check(resolver.attr("lookup").ptr()) != 0;
        if (isObject && !canAsk)
            throw py::value_error("resolver is \"system\", an https address or an object with lookup()");
        if (isObject) {
            if (isFixed) throw py::value_error("answers and a resolver exclude each other");
            m_asked = std::make_shared<PythonResolver>(resolver);
            m_sources->resolver = m_asked;
            m_sources->registry = nullptr;
        }
        m_asksNow = !isFixed && !m_at;
        m_verifier.emplace(m_sources->resolver, m_sources->registry, PublicSuffixList::shared(),
                           m_sources->lookupTime, command.rules());
    }

    std::size_t usualJobs() const { return m_sources->workers; }

    /// Of a message alone, not of those attached to it.
    std::variant<std::shared_ptr<CheckedReport>, Problem> check(FoundMessage found,
                                                                const std::stop_token& stop = {}) const {
        const auto verify = [&](const MailMessage& message, const FoundMessage& place) {
            const Date now = m_asksNow ? currentTime() : m_sources->now;
            if (m_sources->recorded) {
                return m_sources->recorded
                    ->verify(sha256(place.bytes.view()), message, place.place.name(), now, place.facts)
                    .report;
            }
            return m_verifier->verify(message, place.place.name(), now, UUID::random(), stop, place.facts);
        };
        CheckWalk walk(std::move(found), verify,
                       {.keepsBytes = m_sources->recorded != nullptr, .goesInside = false});
        auto outcome = walk.next();
        if (const auto* refusal = std::get_if<Refusal>(&outcome->value))
            return Problem{problemOf(*refusal, outcome->place), textOf(outcome->place.pathName())};
        return std::make_shared<CheckedReport>(
            CheckedReport{std::get<ProofReport>(std::move(outcome->value)), outcome->place.pathName()});
    }

    std::variant<std::shared_ptr<CheckedReport>, Problem> check(const Source& source,
                                                                const std::stop_token& stop = {}) const {
        if (const auto* bytes = std::get_if<std::string>(&source))
            return check(FoundMessage{ByteBuffer(std::string_view(*bytes))}, stop);
        if (const auto* problem = std::get_if<Problem>(&source)) return *problem;
        return check(copyOf(*std::get<std::shared_ptr<const FoundMessage>>(source)), stop);
    }

    /// What a resolver in Python raised to end the program, once. With the interpreter's lock.
    std::exception_ptr takeEnding() const { return m_asked ? m_asked->takeEnding() : nullptr; }

    /// In their order. Ends early when a signal's handler in Python raises, or a resolver to end the program.
    py::list checkAll(const std::vector<Source>& sources, std::size_t jobs) const {
        std::vector<std::variant<std::shared_ptr<CheckedReport>, Problem>> results(sources.size());
        std::atomic<std::size_t> next = 0;
        std::stop_source stop;
        std::exception_ptr raised;
        {
            const py::gil_scoped_release unlocked;
            std::mutex mutex;
            std::condition_variable ended;
            std::size_t running = std::max<std::size_t>(1, std::min(jobs, sources.size()));
            std::vector<std::jthread> threads;
            const auto work = [&] {
                for (std::size_t i = next++; i < sources.size() && !stop.stop_requested(); i = next++) {
                    try {
                        results[i] = check(sources[i], stop.get_token());
                    } catch (const std::exception& error) {
                        results[i] = Problem{error.what(), {}};
                    }
                }
                const std::lock_guard lock(mutex);
                if (--running == 0) ended.notify_all();
            };
            for (std::size_t i = 0, count = running; i < count; ++i) threads.emplace_back(work);
            std::unique_lock lock(mutex);
            while (!ended.wait_for(lock, betweenSignals, [&] { return running == 0; })) {
                lock.unlock();
                {
                    const py::gil_scoped_acquire locked;
                    if (!raised && PyErr_CheckSignals() != 0)
                        raised = std::make_exception_ptr(py::error_already_set());
                    if (!raised) raised = takeEnding();
                    if (raised) stop.request_stop();
                }
                lock.lock();
            }
        }
        if (!raised) raised = takeEnding();
        if (raised) std::rethrow_exception(raised);
        py::list list(results.size());
        for (std::size_t i = 0; i < results.size(); ++i) {
            list[i] = std::visit([](auto& each) { return py::cast(std::move(each)); }, results[i]);
        }
        return list;
    }

private:
    const std::optional<std::string> m_at;
    std::unique_ptr<CheckSources> m_sources = {};
    std::shared_ptr<PythonResolver> m_asked = {};  // unless another is asked
    std::optional<Verifier> m_verifier = {};
    bool m_asksNow = false;
};

/// Bytes, or a message that was found.
Source sourceOf(const py::handle& object) {
    if (py::isinstance<FoundOne>(object)) {
        const auto& found = object.cast<const FoundOne&>();
        if (found.problem) return Problem{*found.problem, textOf(found.place.pathName())};
        return found.message;
    }
    if (py::isinstance<py::bytes>(object)) return std::string(object.cast<std::string_view>());
    if (PyObject_CheckBuffer(object.ptr()) != 0) {
        const auto bytes = py::reinterpret_steal<py::bytes>(PyBytes_FromObject(object.ptr()));
        if (!bytes) throw py::error_already_set();
        return std::string(bytes.cast<std::string_view>());
    }
    throw py::type_error("a message is bytes, or one of messages()");
}

}  // namespace

/// Objects of this class are made here alone: one that `__new__` makes holds nothing that could be read.
void refuseNew(py::handle made) {
    const auto refuse = py::cpp_function([](const py::args&, const py::kwargs&) -> py::object {
        throw py::type_error("it can't be made by hand");
    });
    made.attr("__new__") = py::module_::import("builtins").attr("staticmethod")(refuse);
}

}  // namespace quillmark

PYBIND11_MODULE(_kit, module) {
    using namespace quillmark;
    module.attr("version") = QUILLMARK_VERSION;
    py::register_exception<NoMessage>(module, "NoMessage", PyExc_ValueError);
    py::register_exception_translator([](std::exception_ptr pointer) {
        try {
            if (pointer) std::rethrow_exception(pointer);
        } catch (const AnswersFileError& error) {
            PyErr_SetString(PyExc_ValueError, error.what());
        }
    });

    py::class_<CheckedReport, std::shared_ptr<CheckedReport>> reportClass(module, "Report");
    reportClass
        .def_property_readonly("json",
                               [](const CheckedReport& self) { return compactJSON(self.report, self.path); })
        .def_property_readonly("id", [](const CheckedReport& self) { return self.report.id.text(); })
        .def_property_readonly(
            "verdict",
            [](const CheckedReport& self) { return std::string(nameOf(self.report.verdict.kind)); })
        .def_property_readonly(
            "tone", [](const CheckedReport& self) { return std::string(nameOf(self.report.verdict.tone)); })
        .def_property_readonly("domain", [](const CheckedReport& self) { return self.report.verdict.domain; })
        .def_property_readonly("from_domain",
                               [](const CheckedReport& self) { return self.report.verdict.fromDomain; })
        .def_property_readonly("subject",
                               [](const CheckedReport& self) { return self.report.summary.subject; })
        .def_property_readonly("file_name",
                               [](const CheckedReport& self) { return textOf(self.report.fileName); })
        .def_property_readonly("path", [](const CheckedReport& self) { return textOf(self.path); })
        .def(
            "headline",
            [](const CheckedReport& self, std::string_view language) {
                return headline(self.report.verdict, readerOf(language));
            },
            py::arg("language") = "en")
        .def("cautions", &CheckedReport::cautions, py::arg("language") = "en")
        .def(
            "text",
            [](const CheckedReport& self, std::string_view language) {
                return textReport(self.report, readerOf(language));
            },
            py::arg("language") = "en");

    py::class_<Problem> problemClass(module, "Problem");
    problemClass.def_readonly("text", &Problem::text).def_readonly("path", &Problem::path);

    py::class_<FoundOne> messageClass(module, "Message");
    messageClass
        .def_property_readonly(
            "data",
            [](const FoundOne& self) { return py::bytes(self.message ? self.message->bytes.view() : ""); })
        .def_property_readonly("name", [](const FoundOne& self) { return textOf(self.place.name()); })
        .def_property_readonly("path", [](const FoundOne& self) { return textOf(self.place.pathName()); })
        .def_readonly("problem", &FoundOne::problem);

    py::class_<Messages> messagesClass(module, "Messages");
    messagesClass.def("__iter__", [](Messages& self) -> Messages& { return self; })
        .def("__next__", [](Messages& self) {
            std::optional<FoundOne> found;
            {
                const py::gil_scoped_release unlocked;
                found = self.next();
            }
            if (!found) throw py::stop_iteration();
            return *std::move(found);
        });

    py::class_<Checker> checkerClass(module, "Checker");
    checkerClass.def_property_readonly("usual_jobs", &Checker::usualJobs)
        .def("check",
             [](const Checker& self, const py::object& object) {
                 const Source source = sourceOf(object);
                 std::variant<std::shared_ptr<CheckedReport>, Problem> result;
                 {
                     const py::gil_scoped_release unlocked;
                     result = self.check(source);
                 }
                 if (const auto ending = self.takeEnding()) std::rethrow_exception(ending);
                 if (const auto* problem = std::get_if<Problem>(&result)) throw NoMessage(problem->text);
                 return std::get<std::shared_ptr<CheckedReport>>(result);
             })
        .def("check_all", [](const Checker& self, const py::list& list, std::size_t jobs) {
            std::vector<Source> sources;
            sources.reserve(list.size());
            for (const py::handle& each : list) sources.push_back(sourceOf(each));
            return self.checkAll(sources, jobs);
        });

    module.def("messages", [](std::string path, bool attached) {
        return std::make_unique<Messages>(std::move(path), attached);
    });
    module.def("checker", [](std::vector<std::string> answers, const py::object& resolver,
                             std::optional<std::string> at, bool domainAge, bool undo, std::string dmarc) {
        return std::make_unique<Checker>(std::move(answers), resolver, std::move(at), domainAge, undo,
                                         std::move(dmarc));
    });
    for (py::handle made : {py::handle(reportClass), py::handle(problemClass), py::handle(messageClass),
                            py::handle(messagesClass), py::handle(checkerClass)})
        refuseNew(made);
}
