// A peer of the bridge in C++, for comparison: three of its commands with libcurl and
// nlohmann::json, used as their manuals show. Where the bridge would report a failure, this program
// exits with status 1.
//
//   peer_curl getUserUuid|getRecentStyles|formatCitationsAndBibliography FOLDER

#include <cstdio>
#include <cstdlib>
#include <curl/curl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;
using Lines = std::vector<std::string>;

namespace {

constexpr char separator = '\x01';

// Converts UTF-16LE to UTF-8. An unpaired surrogate becomes U+FFFD; a byte order mark is dropped.
std::string decodeUtf16(const std::string& bytes)
{
    const auto unit = [&bytes](size_t at) -> unsigned {
        return static_cast<unsigned char>(bytes[at])
            | unsigned(static_cast<unsigned char>(bytes[at + 1])) << 8;
    };
    std::string text;
    text.reserve(bytes.size() / 2);
    for (size_t at = bytes.compare(0, 2, "\xff\xfe") == 0 ? 2 : 0; at + 1 < bytes.size(); at += 2) {
        unsigned code = unit(at);
        if (code < 0x80) {
            text += char(code);
            continue;
        }
        const bool high = code >= 0xD800 && code < 0xDC00;
        const unsigned low = high && at + 3 < bytes.size() ? unit(at + 2) : 0;
        if (low >= 0xDC00 && low < 0xE000) {
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            at += 2;
        } else if (code >= 0xD800 && code < 0xE000) {
            code = 0xFFFD;
        }
        if (code < 0x800) {
            text += char(0xC0 | code >> 6);
        } else {
            if (code < 0x10000) {
                text += char(0xE0 | code >> 12);
            } else {
                text += char(0xF0 | code >> 18);
                text += char(0x80 | (code >> 12 & 0x3F));
            }
            text += char(0x80 | (code >> 6 & 0x3F));
        }
        text += char(0x80 | (code & 0x3F));
    }
    return text;
}

void appendUnit(std::string* bytes, unsigned unit)
{
    *bytes += char(unit & 0xFF);
    *bytes += char(unit >> 8);
}

// Appends valid UTF-8 as UTF-16LE. The JSON library has already rejected invalid UTF-8.
void appendUtf16(std::string* bytes, const std::string& text)
{
    for (size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at++]);
        if (lead < 0x80) {
            appendUnit(bytes, lead);
            continue;
        }
        const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        unsigned code = lead & (0x3Fu >> more);
        for (int i = 0; i < more && at < text.size(); ++i)
            code = code << 6 | (static_cast<unsigned char>(text[at++]) & 0x3F);
        if (code >= 0x10000) {
            appendUnit(bytes, 0xD800 + ((code - 0x10000) >> 10));
            code = 0xDC00 + ((code - 0x10000) & 0x3FF);
        }
        appendUnit(bytes, code);
    }
}

std::string readFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path.string() + " cannot be read.");
    std::string bytes(fs::file_size(path), '\0');
    file.read(bytes.data(), std::streamsize(bytes.size()));
    return bytes;
}

Lines readArguments(const fs::path& path)
{
    const std::string text = decodeUtf16(readFile(path));
    Lines lines;
    size_t from = 0;
    for (size_t to; (to = text.find(separator, from)) != std::string::npos; from = to + 1)
        lines.push_back(text.substr(from, to - from));
    lines.push_back(text.substr(from));
    return lines;
}

// Writes a file beside the target, then replaces the target. Returns the number of bytes.
size_t writeFile(const fs::path& path, const Lines& lines)
{
    size_t length = 0;
    for (const std::string& line : lines)
        length += line.size() + 1;
    std::string bytes;
    bytes.reserve(2 * length);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i > 0)
            appendUnit(&bytes, separator);
        appendUtf16(&bytes, lines[i]);
    }
    const fs::path side = path.string() + ".temp";
    std::ofstream file(side, std::ios::binary);
    file.write(bytes.data(), std::streamsize(bytes.size()));
    file.close();
    if (!file)
        throw std::runtime_error(side.string() + " cannot be written.");
    fs::rename(side, path);
    return bytes.size();
}

// The port is in the group "[%General]" of the application's settings.
int settingsPort()
{
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const fs::path home = config ? fs::path(config) : fs::path(std::getenv("HOME")) / ".config";
    std::ifstream file(home / "tessaron.com" / "Tessaron Desktop.conf");
    std::string group;
    const std::string key = "httpServerPort=";
    for (std::string line; std::getline(file, line);) {
        if (line.rfind('[', 0) == 0)
            group = line;
        else if (group == "[%General]" && line.compare(0, key.size(), key) == 0)
            return std::stoi(line.substr(key.size()));
    }
    return 50002;
}

size_t appendReply(char* data, size_t size, size_t count, void* reply)
{
    static_cast<std::string*>(reply)->append(data, size * count);
    return size * count;
}

// Sends a POST if there is a body, otherwise a GET.
json request(const std::string& path, const std::string& body = {})
{
    const std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
    const std::string url = "http://127.0.0.1:" + std::to_string(settingsPort()) + path;
    std::string reply;
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    headers = curl_slist_append(headers, "Expect:"); // do not wait for "100 Continue"
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, appendReply);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &reply);
    if (!body.empty()) {
        curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(body.size()));
    }
    const CURLcode code = curl_easy_perform(curl.get());
    curl_slist_free_all(headers);
    if (code != CURLE_OK)
        throw std::runtime_error(curl_easy_strerror(code));
    long status = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status != 200)
        throw std::runtime_error("The server replied with the status " + std::to_string(status));
    return json::parse(reply);
}

Lines getUserUuid(const fs::path&, Lines)
{
    return {request("/userUuid").value("uuid", "")};
}

Lines getRecentStyles(const fs::path&, Lines)
{
    const json reply = request("/citationStyles/default");
    const json& styles = reply.at("citationStyles");
    Lines lines{std::to_string(styles.size())};
    for (const json& style : styles) {
        lines.push_back(style.value("url", ""));
        lines.push_back(style.value("title", ""));
    }
    return lines;
}

Lines formatCitationsAndBibliography(const fs::path& folder, Lines arguments)
{
    json clusters = json::array();
    for (size_t i = 1; i + 1 < arguments.size(); i += 2)
        clusters.push_back({{"fieldCode", std::move(arguments[i])},
            {"formattedText", std::move(arguments[i + 1])}});
    const size_t submitted = clusters.size();
    const json body = {{"citationStyleUrl", arguments[0]},
        {"citationClusters", std::move(clusters)}, {"tempDirectory", folder.string()}};
    const json reply = request("/formattedCitationsAndBibliography/interactive", body.dump());

    Lines lines{"true", reply.value("citationStyleUrl", ""), reply.value("bibliography", "")};
    for (const json& entry : reply.at("citationClusters")) {
        const json& cluster = entry.at("citationCluster");
        const json tessaron = cluster.value("tessaron", json::object());
        lines.push_back("ADDIN CSL_CITATION " + cluster.dump());
        lines.push_back(entry.value("formattedText", ""));
        lines.push_back(tessaron.value("previouslyFormattedCitation", ""));
        lines.push_back(tessaron.value("plainTextFormattedCitation", ""));
    }
    if (lines.size() != 3 + 4 * submitted || lines[2].empty())
        throw std::runtime_error("The reply does not match the request.");
    return lines;
}

const std::map<std::string, std::function<Lines(const fs::path&, Lines)>> commands{
    {"getUserUuid", getUserUuid},
    {"getRecentStyles", getRecentStyles},
    {"formatCitationsAndBibliography", formatCitationsAndBibliography},
};

void run(const std::string& command, const fs::path& folder)
{
    Lines arguments = readArguments(folder / "mac-word-plugin-args.txt");
    const Lines results = commands.at(command)(folder, std::move(arguments));
    const size_t count = writeFile(folder / "mac-word-plugin-results.txt", results);
    writeFile(folder / "mac-word-plugin-result-ready.txt", {std::to_string(count)});
    std::cout << count << std::endl;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: peer_curl COMMAND FOLDER\n";
        return 1;
    }
    try {
        run(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
