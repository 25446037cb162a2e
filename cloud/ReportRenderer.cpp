#include "ReportRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace vemo {
namespace cloud {

namespace {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void writePrivacy(JsonWriter& w, const PrivacyAccounting& p) {
    w.StartObject();
    w.Key("epsilon");
    w.Double(p.epsilon);
    w.Key("cohort_size");
    w.Int(p.cohortSize);
    w.Key("effective_epsilon");
    w.Double(p.effectiveEpsilon);
    w.Key("reports_per_device");
    w.Double(p.reportsPerDevice);
    w.Key("no_noise");
    w.Bool(p.noNoise);
    w.Key("warnings");
    w.StartArray();
    for (const auto& warning : p.warnings) {
        w.String(warning);
    }
    w.EndArray();
    w.EndObject();
}

void writeBin(JsonWriter& w, const BinEstimate& b) {
    w.StartObject();
    w.Key("label");
    w.String(b.label);
    w.Key("noisy_count");
    w.Int64(b.noisyCount);
    // Non-finite numbers have no JSON form: a bin without an estimate
    // (reports without information) carries nulls.
    const bool finite = b.estimable && std::isfinite(b.low) && std::isfinite(b.high);
    w.Key("estimate");
    finite ? w.Double(b.estimate) : w.Null();
    w.Key("stderr");
    finite ? w.Double(b.standardError) : w.Null();
    w.Key("ci95");
    if (finite) {
        w.StartArray();
        w.Double(b.low);
        w.Double(b.high);
        w.EndArray();
    } else {
        w.Null();
    }
    w.EndObject();
}

std::string escapeHtml(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string number(double value, const char* fmt = "%.1f") {
    char text[64];
    std::snprintf(text, sizeof text, fmt, value);
    return text;
}

// One horizontal bar per bin: labels on the left, a shared axis from the
// smallest interval end (or 0) to the largest value shown.
std::string svgChart(const ItemResults& item) {
    const auto& bins = item.estimate.bins;
    double lo = 0;
    double hi = 1;
    for (const auto& b : bins) {
        hi = std::max(hi, static_cast<double>(b.noisyCount));
        if (b.estimable) {
            lo = std::min(lo, b.low);
            hi = std::max(hi, b.high);
        }
    }
    const double labelWidth = 280;
    const double plotWidth = 480;
    const double row = 22;
    const double top = 28;
    const double height = top + row * static_cast<double>(bins.size()) + 10;
    auto x = [&](double v) { return labelWidth + (v - lo) / (hi - lo) * plotWidth; };
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
                      number(labelWidth + plotWidth + 20, "%.0f") + "\" height=\"" +
                      number(height, "%.0f") + "\" role=\"img\" aria-label=\"" +
                      escapeHtml(item.name) + "\">\n";
    svg += "<line x1=\"" + number(x(0)) + "\" y1=\"" + number(top - 6) + "\" x2=\"" + number(x(0)) +
           "\" y2=\"" + number(height - 6) + "\" stroke=\"#888\"/>\n";
    svg += "<text x=\"" + number(labelWidth) + "\" y=\"14\" font-size=\"11\">" +
           number(lo, "%.0f") + "</text><text x=\"" + number(labelWidth + plotWidth) +
           "\" y=\"14\" font-size=\"11\" text-anchor=\"end\">" + number(hi, "%.0f") + "</text>\n";
    for (size_t i = 0; i < bins.size(); ++i) {
        const auto& b = bins[i];
        const double y = top + row * static_cast<double>(i);
        const double mid = y + row / 2;
        svg += "<text x=\"" + number(labelWidth - 6) + "\" y=\"" + number(mid + 4) +
               "\" font-size=\"12\" text-anchor=\"end\">" + escapeHtml(b.label) + "</text>\n";
        if (b.estimable) {
            const double x0 = std::min(x(0), x(b.estimate));
            const double w = std::fabs(x(b.estimate) - x(0));
            svg += "<rect x=\"" + number(x0) + "\" y=\"" + number(y + 4) + "\" width=\"" +
                   number(w) + "\" height=\"" + number(row - 8) +
                   "\" fill=\"#4e79a7\"><title>estimate " + number(b.estimate) + " ± " +
                   number(b.standardError) + "</title></rect>\n";
            svg += "<path d=\"M" + number(x(b.low)) + " " + number(mid) + "H" + number(x(b.high)) +
                   "M" + number(x(b.low)) + " " + number(mid - 5) + "V" + number(mid + 5) + "M" +
                   number(x(b.high)) + " " + number(mid - 5) + "V" + number(mid + 5) +
                   "\" stroke=\"#222\" fill=\"none\"/>\n";
        }
        svg += "<circle cx=\"" + number(x(static_cast<double>(b.noisyCount))) + "\" cy=\"" +
               number(mid) + "\" r=\"3.5\" fill=\"#e15759\"><title>noisy count " +
               std::to_string(b.noisyCount) + "</title></circle>\n";
    }
    svg += "</svg>\n";
    return svg;
}

std::string pad(const std::string& text, size_t width, bool right) {
    if (text.size() >= width) {
        return text;
    }
    const std::string fill(width - text.size(), ' ');
    return right ? fill + text : text + fill;
}

}  // namespace

std::string ReportRenderer::json(const CampaignResults& results) {
    rapidjson::StringBuffer buffer;
    JsonWriter w(buffer);
    w.StartObject();
    w.Key("campaign_id");
    w.String(results.campaignId);
    w.Key("applications");
    w.StartArray();
    for (const auto& app : results.applications) {
        w.StartObject();
        w.Key("application_id");
        w.String(app.applicationId);
        w.Key("devices");
        w.Int64(app.devices);
        w.Key("sessions");
        w.Int64(app.sessions);
        w.Key("checksum_ok");
        w.Bool(app.checksumOk);
        w.Key("items");
        w.StartArray();
        for (const auto& item : app.items) {
            w.StartObject();
            w.Key("name");
            w.String(item.name);
            w.Key("length");
            w.Uint(item.length);
            w.Key("reports");
            w.Int64(item.estimate.reports);
            w.Key("privacy");
            writePrivacy(w, item.estimate.privacy);
            w.Key("bins");
            w.StartArray();
            for (const auto& bin : item.estimate.bins) {
                writeBin(w, bin);
            }
            w.EndArray();
            w.EndObject();
        }
        w.EndArray();
        w.EndObject();
    }
    w.EndArray();
    w.EndObject();
    return buffer.GetString();
}

std::string ReportRenderer::html(const CampaignResults& results) {
    const std::string id = escapeHtml(results.campaignId);
    std::string out =
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Campaign " + id +
        "</title>\n<style>body{font-family:sans-serif;margin:2em}table{border-collapse:collapse}"
        "td,th{padding:2px 8px;text-align:right}td:first-child,th:first-child{text-align:left}"
        ".warn{color:#b35c00}</style></head><body>\n<h1>Campaign " +
        id + "</h1>\n";
    if (results.applications.empty()) {
        out += "<p>No session of this campaign has completed yet.</p>\n";
    }
    for (const auto& app : results.applications) {
        out += "<h2>" + escapeHtml(app.applicationId) + "</h2>\n<p>" + std::to_string(app.devices) +
               " devices, " + std::to_string(app.sessions) + " sessions, checksums " +
               (app.checksumOk ? "all held" : "FAILED in some session") + ".</p>\n";
        for (const auto& item : app.items) {
            const auto& p = item.estimate.privacy;
            out += "<h3>" + escapeHtml(item.name) + "</h3>\n<p>" +
                   std::to_string(item.estimate.reports) + " reports over " +
                   std::to_string(item.length) + " bins; epsilon " + number(p.epsilon, "%g") +
                   ", cohort size " + std::to_string(p.cohortSize) + ", effective epsilon " +
                   number(p.effectiveEpsilon, "%.3g") + ", " + number(p.reportsPerDevice, "%.2f") +
                   " reports per device and upload" + (p.noNoise ? "; no noise" : "") + ".</p>\n";
            for (const auto& warning : p.warnings) {
                out += "<p class=\"warn\">" + escapeHtml(warning) + "</p>\n";
            }
            out += svgChart(item);
            out +=
                "<p><small>Bar: estimate; whisker: 95% interval; red dot: raw noisy "
                "count.</small></p>\n<table><tr><th>bin</th><th>noisy count</th><th>estimate</th>"
                "<th>std. error</th><th>95% interval</th></tr>\n";
            for (const auto& b : item.estimate.bins) {
                out += "<tr><td>" + escapeHtml(b.label) + "</td><td>" +
                       std::to_string(b.noisyCount) + "</td>";
                out += b.estimable
                           ? "<td>" + number(b.estimate) + "</td><td>" + number(b.standardError) +
                                 "</td><td>[" + number(b.low) + ", " + number(b.high) + "]</td>"
                           : std::string("<td>-</td><td>-</td><td>-</td>");
                out += "</tr>\n";
            }
            out += "</table>\n";
        }
    }
    out += "</body></html>\n";
    return out;
}

std::string ReportRenderer::table(const CampaignResults& results) {
    std::string out = "campaign " + results.campaignId + "\n";
    if (results.applications.empty()) {
        out += "  no session of this campaign has completed yet\n";
    }
    for (const auto& app : results.applications) {
        out += "\napplication " + app.applicationId + ": " + std::to_string(app.devices) +
               " devices, " + std::to_string(app.sessions) + " sessions, checksums " +
               (app.checksumOk ? "ok" : "FAILED") + "\n";
        for (const auto& item : app.items) {
            const auto& p = item.estimate.privacy;
            out += "\n  " + item.name + ": " + std::to_string(item.estimate.reports) +
                   " reports, " + std::to_string(item.length) + " bins, epsilon " +
                   number(p.epsilon, "%g") + " x sqrt(" + std::to_string(p.cohortSize) +
                   ") = " + number(p.effectiveEpsilon, "%.3g") + ", " +
                   number(p.reportsPerDevice, "%.2f") + " reports/device" +
                   (p.noNoise ? ", no noise" : "") + "\n";
            for (const auto& warning : p.warnings) {
                out += "  warning: " + warning + "\n";
            }
            size_t width = 5;
            for (const auto& b : item.estimate.bins) {
                width = std::max(width, b.label.size());
            }
            out += "  " + pad("bin", width, false) + "  " + pad("noisy", 8, true) + "  " +
                   pad("estimate", 10, true) + "  " + pad("stderr", 8, true) + "  95% interval\n";
            for (const auto& b : item.estimate.bins) {
                out += "  " + pad(b.label, width, false) + "  " +
                       pad(std::to_string(b.noisyCount), 8, true) + "  ";
                if (b.estimable) {
                    out += pad(number(b.estimate), 10, true) + "  " +
                           pad(number(b.standardError), 8, true) + "  [" + number(b.low) + ", " +
                           number(b.high) + "]\n";
                } else {
                    out += pad("-", 10, true) + "  " + pad("-", 8, true) + "  -\n";
                }
            }
        }
    }
    return out;
}

}  // namespace cloud
}  // namespace vemo
