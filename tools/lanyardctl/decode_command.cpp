// The command "decode": what is in a packet, and whether the secret explains its authenticators.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "attributes.h"
#include "captured.h"
#include "command.h"
#include "configuration.h"
#include "radius_packet.h"
#include "secret.h"
#include "style.h"
#include "table.h"

namespace lanyardctl {
namespace {

constexpr const char *kDecodeFooter =
    "FILE is a capture of tcpdump (pcap, pcapng), or text: hexadecimal digits, a dump with "
    "offsets, or a\n"
    "log of the library with its 'RADIUS Tx Buffer' (PAL_DEBUG_LEVELS=412). Of a capture, UDP of "
    "the\n"
    "ports 1812, 1813, 1645, 1646, 3799 and --port is taken.\n"
    "With the shared secret every authenticator is verified, that of a reply with the request "
    "before it.\n"
    "Passwords and keys are not shown.";

constexpr int kPortMax = 65535;
constexpr const char *kStandardInput = "standard input";

struct DecodeOptions {
    std::string file = "-";
    std::optional<std::string> secretFile = {};
    std::optional<std::string> dictionary = {};
    int port = 1812;
};

// One proof of a packet.
struct ProofShown {
    const char *name;
    const char *verdict;  // "right", "wrong", "missing", "not verified: ..."
};

// A packet, and all that is to be said of it.
struct Decoded {
    const Captured *captured;
    std::string problem;  // why it is no packet
    std::optional<PacketView> packet;
    std::vector<ProofShown> proofs;
};

const char *verdictOf(Proof proof) {
    return proof == Proof::kNone ? "missing" : proof == Proof::kRight ? "right" : "wrong";
}

std::optional<PacketView> parse(Decoded &decoded) {
    try {
        return PacketView(decoded.captured->bytes);
    } catch (const Malformed &problem) {
        decoded.problem = problem.what();
        return std::nullopt;
    }
}

// The request that a reply answers: the newest before it, between the same ends where they are known.
const PacketView *requestOf(const std::vector<Decoded> &before, const Decoded &reply) {
    const auto found = std::find_if(before.rbegin(), before.rend(), [&reply](const Decoded &row) {
        return row.packet && !row.packet->isReply() &&
               row.packet->identifier() == reply.packet->identifier() &&
               row.captured->source == reply.captured->destination &&
               row.captured->destination == reply.captured->source;
    });
    return found == before.rend() ? nullptr : &*found->packet;
}

void prove(Decoded &decoded, const std::vector<Decoded> &before, const std::string &secret) {
    constexpr const char *kNoRequest = "not verified: the request is not here";
    const PacketView &packet = *decoded.packet;
    const PacketView *request = packet.isReply() ? requestOf(before, decoded) : &packet;
    if (!request) {
        decoded.proofs.push_back({"authenticator", kNoRequest});
        return;
    }
    if (packet.isReply()) {
        decoded.proofs.push_back(
            {"authenticator", verdictOf(responseProof(packet, request->authenticator(), secret))});
    } else if (const Proof proof = accountingProof(packet, secret); proof != Proof::kNone) {
        decoded.proofs.push_back({"authenticator", verdictOf(proof)});
    }
    decoded.proofs.push_back({"Message-Authenticator",
                              verdictOf(messageProof(packet, request->authenticator(), secret))});
}

std::vector<Decoded> decodeAll(const std::vector<Captured> &packets,
                               const std::optional<std::string> &secretFile) {
    std::optional<Secret> secret;
    if (secretFile) {
        secret.emplace(readSecretFile(*secretFile).text());
    }
    std::vector<Decoded> all;
    for (const Captured &captured : packets) {
        Decoded decoded{&captured, "", std::nullopt, {}};
        decoded.packet = parse(decoded);
        if (decoded.packet && secret) {
            prove(decoded, all, secret->text());
        }
        all.push_back(std::move(decoded));
    }
    return all;
}

bool isRight(const Decoded &decoded) {
    return decoded.problem.empty() &&
           std::none_of(decoded.proofs.begin(), decoded.proofs.end(), [](const ProofShown &proof) {
               return std::string(proof.verdict) == "wrong";
           });
}

Json documentOf(const Decoded &decoded) {
    Json document = {{"at", decoded.captured->title}};
    if (!decoded.captured->source.empty()) {
        document["source"] = decoded.captured->source;
        document["destination"] = decoded.captured->destination;
    }
    if (!decoded.packet) {
        document["problem"] = decoded.problem;
        return document;
    }
    const PacketView &packet = *decoded.packet;
    document["code"] = packet.code();
    document["code_name"] = codeName(packet.code());
    document["identifier"] = packet.identifier();
    document["length"] = packet.bytes().size();
    for (const ProofShown &proof : decoded.proofs) {
        document["proofs"][proof.name] = proof.verdict;
    }
    document["attributes"] = asJson(shownAttributes(packet.attributes()));
    return document;
}

std::string textOf(const Decoded &decoded) {
    std::string text = decoded.captured->title;
    if (!decoded.captured->source.empty()) {
        text += ", " + decoded.captured->source + " > " + decoded.captured->destination;
    }
    if (!decoded.packet) {
        return text + ": " + toned(Tone::kBad, "no packet") + ": " + decoded.problem;
    }
    const PacketView &packet = *decoded.packet;
    text += ": " + codeName(packet.code()) + ", identifier " + std::to_string(packet.identifier()) +
            ", " + std::to_string(packet.bytes().size()) + " bytes";
    for (const ProofShown &proof : decoded.proofs) {
        const std::string verdict = proof.verdict;
        const Tone tone = verdict == "right"   ? Tone::kGood
                          : verdict == "wrong" ? Tone::kBad
                                               : Tone::kDoubtful;
        text += std::string("\n  ") + proof.name + ": " + toned(tone, verdict);
    }
    const std::string table = asTable(shownAttributes(packet.attributes()), "  ");
    return text + (table.empty() ? "" : "\n" + table);
}

// All that is in a file; of a pipe it can be read but once.
std::string contentOf(const std::string &name) {
    const std::unique_ptr<FILE, decltype(&fclose)> opened(
        name == kStandardInput ? nullptr : std::fopen(name.c_str(), "re"), fclose);
    FILE *file = name == kStandardInput ? stdin : opened.get();
    std::string content;
    std::array<char, 65536> buffer{};
    for (size_t size = 1; file && size != 0;) {
        size = std::fread(buffer.data(), 1, buffer.size(), file);
        content.append(buffer.data(), size);
    }
    if (!file || std::ferror(file) != 0) {
        throw Failure("cannot read " + name + ": " + std::strerror(errno));
    }
    return content;
}

std::vector<Captured> packetsIn(const std::string &name, int port) {
    const std::string content = contentOf(name);
    std::vector<Captured> packets =
        isPcap(content) ? packetsInPcap(content, name, port) : packetsInText(content);
    if (packets.empty()) {
        throw Failure("there is no packet in " + name);
    }
    return packets;
}

ExitCode decode(const DecodeOptions &options, const Report &report) {
    const Dictionary dictionary(options.dictionary);
    const std::vector<Captured> packets =
        packetsIn(options.file == "-" ? kStandardInput : options.file, options.port);
    const std::vector<Decoded> all = decodeAll(packets, options.secretFile);
    const bool allRight = std::all_of(all.begin(), all.end(), isRight);
    Json list = Json::array();
    std::string text;
    for (const Decoded &decoded : all) {
        list.push_back(documentOf(decoded));
        text += (text.empty() ? "" : "\n\n") + textOf(decoded);
    }
    report.answer({{"ok", allRight}, {"packets", list}}, text);
    return allRight ? kDone : kNo;
}

}  // namespace

void addDecodeCommand(CLI::App &app, Task &task) {
    const auto options = std::make_shared<DecodeOptions>();
    CLI::App &command = addCommand(app, "decode", "Shows packets, attribute by attribute", task,
                                   [options](Report &report) { return decode(*options, report); });
    addText(command, "FILE", options->file, "", "capture or text; - or none for standard input");
    addText(command, "--secret-file", options->secretFile, "FILE",
            "file whose first line is the shared secret");
    addText(command, "--dictionary", options->dictionary, "FILE",
            "dictionary file; the built-in table without it");
    command.add_option("--port", options->port, "another port of the capture that is RADIUS")
        ->type_name("PORT")
        ->check(CLI::Range(1, kPortMax).description(""));
    command.footer(kDecodeFooter);
}

}  // namespace lanyardctl
