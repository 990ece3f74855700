#include "Classes/Model/KvPimMetrics.h"

#include "Classes/Internal/KvMetricTable.h"

#include <array>
#include <charconv>
#include <map>
#include <utility>

#include <boost/json/object.hpp>

namespace kv {
namespace {

enum class Form { openMetrics, prometheus };

// The shortest text that is read as the same number.
std::string textOf(double number) {
    std::array<char, 400> text;
    auto const end = std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed).ptr;
    return {text.data(), end};
}
std::string textOf(std::uint64_t number) { return std::to_string(number); }

double valueOf(std::chrono::nanoseconds time) { return std::chrono::duration<double>(time).count(); }
std::uint64_t valueOf(std::uint64_t number) { return number; }

void addLabel(std::string& labels, std::string_view name, std::string_view value) {
    labels.append(labels.empty() ? "" : ",").append(name).append("=\"");
    for (char const c : value) {
        if (c == '\n') {
            labels += "\\n";
        } else {
            if (c == '"' || c == '\\') labels += '\\';
            labels += c;
        }
    }
    labels += '"';
}

class Printer {
public:
    explicit Printer(Form form) : form_(form) {}

    void family(std::string const& name, KvMetric const& metric) {
        bool const isCounter = metric.kind == KvMetric::Kind::counter;
        total_ = isCounter ? "_total" : "";
        name_ = name;
        // The older form knows nothing of families whose samples are called otherwise.
        auto const& called = form_ == Form::openMetrics ? name : name + total_;
        text_.append("# HELP ").append(called).append(" ").append(metric.help).append("\n# TYPE ").append(called);
        text_.append(" ").append(metric.type()).append("\n");
        if (form_ == Form::openMetrics && !metric.unit.empty())
            text_.append("# UNIT ").append(called).append(" ").append(metric.unit).append("\n");
    }
    /// `labels`: those of the client.
    void samples(std::string const& labels, KvMetric const& metric, KvPimMetrics metrics) {
        std::visit([&](auto const& numbers) { print(labels, metric, numbers); }, metric.of(metrics));
    }
    std::string take() && {
        if (form_ == Form::openMetrics) text_ += "# EOF\n";
        return std::move(text_);
    }

private:
    template <class Number>
    void print(std::string const& labels, KvMetric const& metric, std::span<Number> numbers) {
        if (metric.label.empty()) return sample(total_, labels, textOf(valueOf(numbers.front())));
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            if (metric.labelled[i].empty()) continue;
            auto all = labels;
            addLabel(all, metric.label, metric.labelled[i]);
            sample(total_, all, textOf(valueOf(numbers[i])));
        }
    }
    void print(std::string const& labels, KvMetric const&, KvPimDurations const* durations) {
        std::uint64_t count = 0;
        for (std::size_t i = 0; i < durations->counts.size(); ++i) {
            bool const isLast = i == KvPimDurations::kBounds.size();
            auto all = labels;
            addLabel(all, "le", isLast ? "+Inf" : textOf(valueOf(KvPimDurations::kBounds[i])));
            sample("_bucket", all, textOf(count += durations->counts[i]));
        }
        sample("_count", labels, textOf(count));
        sample("_sum", labels, textOf(valueOf(durations->total)));
    }
    void sample(std::string_view suffix, std::string const& labels, std::string const& number) {
        text_.append(name_).append(suffix);
        if (!labels.empty()) text_.append("{").append(labels).append("}");
        text_.append(" ").append(number).append("\n");
    }

    Form const form_;
    std::string text_, name_, total_;
};

std::string textOf(Form form, std::vector<KvPimMetrics> const& clients, KvPimMetrics const& process) {
    std::map<std::string, KvPimMetrics> byLabels;
    for (auto const& client : clients) {
        std::string labels;
        addLabel(labels, "app", client.appId);
        addLabel(labels, "user", client.userId);
        add(byLabels[labels], client);
    }
    Printer printer(form);
    for (auto const& metric : metricTable()) {
        if (byLabels.empty()) break;
        printer.family("kvpim_" + std::string(metric.name), metric);
        for (auto const& [labels, metrics] : byLabels) printer.samples(labels, metric, metrics);
    }
    for (auto const& metric : metricTable()) {
        printer.family("kvpim_process_" + std::string(metric.name), metric);
        printer.samples({}, metric, process);
    }
    return std::move(printer).take();
}

boost::json::value jsonOf(KvMetric const&, KvPimDurations const* durations) {
    boost::json::object buckets;
    for (std::size_t i = 0; i < durations->counts.size(); ++i) {
        bool const isLast = i == KvPimDurations::kBounds.size();
        buckets[isLast ? "more" : textOf(valueOf(KvPimDurations::kBounds[i]))] = durations->counts[i];
    }
    return {{"count", durations->count()}, {"sum", valueOf(durations->total)}, {"buckets", std::move(buckets)}};
}

template <class Number>
boost::json::value jsonOf(KvMetric const& metric, std::span<Number> numbers) {
    if (metric.label.empty()) return valueOf(numbers.front());
    boost::json::object each;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (!metric.labelled[i].empty()) each[metric.labelled[i]] = valueOf(numbers[i]);
    }
    return each;
}

}  // namespace

std::string openMetricsText(std::vector<KvPimMetrics> const& clients, KvPimMetrics const& process) {
    return textOf(Form::openMetrics, clients, process);
}

std::string prometheusText(std::vector<KvPimMetrics> const& clients, KvPimMetrics const& process) {
    return textOf(Form::prometheus, clients, process);
}

boost::json::object toJson(KvPimMetrics const& metrics) {
    boost::json::object object{{"app", metrics.appId}, {"user", metrics.userId}};
    auto read = metrics;
    for (auto const& metric : metricTable()) {
        object[metric.name] = std::visit([&](auto const& numbers) { return jsonOf(metric, numbers); }, metric.of(read));
    }
    return object;
}

}  // namespace kv
