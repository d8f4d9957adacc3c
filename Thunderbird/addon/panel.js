"use strict";

// What Quillmark says of the messages that are shown, or of those that were chosen in the list. Its sentences come
// from the host, in the language of Thunderbird; the few here are for what happens before or without it. Somebody
// else wrote what the sentences quote: every text goes into the page by textContent.

const host = "org.quillmark.thunderbird";
const largestMessage = 50_000_000; // bytes; the host takes no more
const mostAtOnce = 4; // messages in memory
// Characters of base64, in whole groups of four. What goes to the host in one piece takes Thunderbird time that grows
// with the square of its length.
const pieceLength = 1 << 19;
const symbols = {good: "✓", caution: "!", bad: "✕", unknown: "?"};

/** A failure with words for the person. */
class Problem extends Error {
    constructor(name) {
        super(browser.i18n.getMessage(name));
    }
}

/** The host: started with the first question, and anew when it has ended. It ends with this page. */
class Host {
    #port = null;
    #waiting = new Map();
    #last = 0;

    /** Resolves to what it answers; rejects with a Problem. */
    ask(command, message) {
        return new Promise((resolve, reject) => {
            const id = ++this.#last;
            this.#waiting.set(id, {resolve, reject});
            const port = this.#connected(), language = browser.i18n.getUILanguage();
            let end = 0;
            do {
                const piece = message.slice(end, (end += pieceLength));
                port.postMessage({id, command, language, message: piece, more: end < message.length});
            } while (end < message.length);
        });
    }

    #connected() {
        if (this.#port) return this.#port;
        const port = (this.#port = browser.runtime.connectNative(host));
        port.onMessage.addListener(answer => {
            const {resolve} = this.#waiting.get(answer.id);
            this.#waiting.delete(answer.id);
            resolve(answer);
        });
        port.onDisconnect.addListener(() => {
            this.#port = null;
            const isMissing = port.error?.message.startsWith("No such native application");
            for (const {reject} of this.#waiting.values()) reject(new Problem(isMissing ? "hostMissing" : "hostEnded"));
            this.#waiting.clear();
        });
        return port;
    }
}

/** The bytes of a message as the server or the folder has them, in base64. */
async function messageBytes(id) {
    let file;
    try {
        file = await browser.messages.getRaw(id, {data_format: "File"});
    } catch {
        throw new Problem("messageUnreadable");
    }
    if (file.size > largestMessage) throw new Problem("messageTooLarge");
    return new Promise((resolve, reject) => {
        const reader = new FileReader();
        reader.onload = () => resolve(reader.result.slice(reader.result.indexOf(",") + 1));
        reader.onerror = () => reject(new Problem("messageUnreadable"));
        reader.readAsDataURL(file);
    });
}

const leftwards = "\\u0590-\\u08FF\\uFB1D-\\uFDFF\\uFE70-\\uFEFF\\u{10800}-\\u{10FFF}\\u{1E800}-\\u{1EFFF}";
const leftwardsRuns = new RegExp(`[${leftwards}](?: *[${leftwards}\\p{M}])*`, "gu");

const isRightToLeft = browser.i18n.getMessage("direction") === "rtl";

/**
 * Puts a text into an element. Letters written from right to left are isolated, so that they can't pull what stands
 * beside them along, and no line ends at a hyphen of a domain. In a language that is itself written so, the host has
 * set apart what others wrote.
 */
function fill(element, text) {
    element.textContent = "";
    const isolated = isRightToLeft ? text : text.replace(leftwardsRuns, "\u2068$&\u2069");
    for (const word of isolated.split(/( )/)) {
        const isWhole = /[.@]/.test(word) && word.includes("-");
        const piece = isWhole ? document.createElement("span") : document.createTextNode("");
        if (isWhole) piece.className = "whole";
        piece.textContent = word;
        element.append(piece);
    }
}

/** One message's place on the page. */
class View {
    constructor(id, connection) {
        this.id = id;
        this.connection = connection;
        this.article = document.querySelector("template").content.cloneNode(true).querySelector("article");
        this.part("from-label").textContent = browser.i18n.getMessage("from");
        this.part("subject-label").textContent = browser.i18n.getMessage("subject");
        this.part("open").textContent = browser.i18n.getMessage("open");
        this.part("open").addEventListener("click", () => this.open());
        document.querySelector("main").append(this.article);
    }

    part(name) {
        return this.article.querySelector(`.${name}`);
    }

    showOnly(headline, {problem = "", summary = null} = {}) {
        fill(this.part("headline").querySelector(".text"), headline);
        this.part("problem").textContent = problem;
        const parts = ["dl", ".explanation", ".decider", ".band", ".remarks", ".what-to-do", ".open"];
        for (const each of parts) this.article.querySelector(each).hidden = !summary;
        this.part("problem").hidden = !problem;
    }

    mark(element, tone, word) {
        element.closest("li, .headline").dataset.tone = tone;
        element.textContent = symbols[tone];
        element.ariaLabel = word;
    }

    show(summary) {
        this.article.dataset.verdict = summary.verdict;
        this.showOnly(summary.headline, {summary});
        this.mark(this.part("headline").querySelector(".symbol"), summary.tone, summary.toneWord);
        for (const name of ["from", "subject", "explanation", "lead"]) fill(this.part(name), summary[name]);
        fill(this.part("what-to-do"), summary.whatToDo);
        this.list("decider", summary.decider ? [summary.decider] : []);
        this.list("cautions", summary.cautions);
        this.list("remarks", summary.remarks);
        this.part("band").hidden = summary.cautions.length === 0;
    }

    list(name, lines) {
        for (const {tone, toneWord, text} of lines) {
            const line = document.createElement("li");
            const [symbol, words] = [document.createElement("span"), document.createElement("span")];
            symbol.className = "symbol";
            symbol.role = "img";
            fill(words, text);
            line.append(symbol, words);
            if (tone) this.mark(symbol, tone, toneWord);
            this.part(name).append(line);
        }
        this.part(name).hidden = lines.length === 0;
    }

    async check() {
        this.showOnly(browser.i18n.getMessage("checking"));
        this.article.ariaBusy = "true";
        try {
            const {summary, problem} = await this.connection.ask("check", await messageBytes(this.id));
            summary ? this.show(summary) : this.showOnly(browser.i18n.getMessage("notChecked"), {problem});
        } catch (problem) {
            this.showOnly(browser.i18n.getMessage("notChecked"), {problem: problem.message});
        }
        this.article.ariaBusy = "false";
    }

    async open() {
        const button = this.part("open");
        button.disabled = true;
        let problem = "";
        try {
            ({problem = ""} = await this.connection.ask("open", await messageBytes(this.id)));
        } catch (error) {
            problem = error.message;
        }
        this.part("problem").textContent = problem;
        this.part("problem").hidden = !problem;
        button.disabled = false;
    }
}

/** The numbers of the messages that this page is about, as they come. */
async function* messages() {
    const query = new URLSearchParams(location.search);
    if (!query.has("messages")) {
        const [tab] = await browser.tabs.query({active: true, currentWindow: true});
        const displayed = await browser.messageDisplay.getDisplayedMessages(tab.id);
        for (const {id} of displayed.messages) yield id;
        return;
    }
    for (const id of query.get("messages").split(",")) yield Number(id);
    for (let list = query.get("list"); list; ) {
        const page = await browser.messages.continueList(list);
        for (const {id} of page.messages) yield id;
        list = page.id;
    }
}

async function main() {
    document.documentElement.lang = browser.i18n.getUILanguage();
    document.documentElement.dir = isRightToLeft ? "rtl" : "ltr";
    document.body.classList.toggle("popup", !location.search);
    const connection = new Host();
    const all = messages();
    const next = async () => {
        for (let each; !(each = await all.next()).done; ) await new View(each.value, connection).check();
    };
    await Promise.all(Array.from({length: mostAtOnce}, next));
}

main();
