// The page: which shot is looked at, and what follows from it.
import { fileAddress, keep, listShots, match, preview, Refused, thumbnailAddress } from "./api.js";
import { beginAdjusting, offerBands, showAdjustments, stopComparing, turnBy } from "./adjust.js";
import { byId, clock } from "./dom.js";
import { beginExports, offerExport, showExports } from "./exports.js";
import { markChosen, showShots } from "./list.js";
import * as sphere from "./sphere.js";

/** @typedef {import("./api.js").Shot} Shot */

const kDragged = 1024; // pixels of a preview while the hand moves, and when it rests
const kRested = 2880;
const kRest = 250; // ms
const kPoll = 2000;
const kPollPending = 400;

const title = byId("title", HTMLHeadingElement);
const status = byId("status", HTMLParagraphElement);
const hint = byId("hint", HTMLParagraphElement);
const message = byId("message", HTMLParagraphElement);
const below = byId("below", HTMLDivElement);
const tools = byId("tools", HTMLElement);
const flat = byId("flat", HTMLImageElement);
const sphereBox = byId("sphere", HTMLDivElement);
const time = byId("time", HTMLInputElement);
const timeLabel = byId("time-label", HTMLLabelElement);
const timeText = byId("time-text", HTMLOutputElement);

/** @type {Shot[]} */
let shots = [];
/** @type {Shot|null} */
let chosen = null;
/** @type {Record<string, string>} */
let adjustments = {};
let comparing = false;
let readOnly = false;
/** Name of a file that is to be opened once it is in the list. */
let awaited = "";

/** @param {unknown} error */
function tell(error) {
    message.textContent = error instanceof Refused ? error.message : "The server does not answer; has it ended?";
}

// ---- The preview: one at a time, and always the last that was wanted.

/** @type {number|null} */
let wanted = null;
let busy = false;
let resting = 0;
/** Whether the message tells why there was no preview. */
let refused = false;

/** @param {number} width */
async function makePreview(width) {
    const shot = chosen;
    if (!shot) {
        return;
    }
    const picture = await preview(shot, comparing ? {} : adjustments, width, Number(time.value));
    if (shot === chosen) {
        await sphere.showPicture(URL.createObjectURL(picture));
        sphereBox.dataset.width = String(width);
        message.textContent = refused ? "" : message.textContent;
        refused = false;
    }
}

/** @param {number} width */
async function show(width) {
    wanted = width;
    if (busy) {
        return;
    }
    busy = true;
    sphereBox.ariaBusy = "true";
    while (wanted !== null) {
        const next = wanted;
        wanted = null;
        await makePreview(next).catch((error) => {
            refused = true;
            tell(error);
        });
    }
    busy = false;
    sphereBox.ariaBusy = "false";
}

function showSoon() {
    show(kDragged);
    clearTimeout(resting);
    resting = window.setTimeout(() => show(kRested), kRest);
}

// ---- Adjustments are kept when the hand rests.

let keeping = 0;

function keepSoon() {
    const shot = chosen;
    const settings = adjustments;
    clearTimeout(keeping);
    keeping = window.setTimeout(() => {
        if (shot && !readOnly) {
            shot.adjustments = settings;
            keep(shot, settings).catch(tell);
        }
    }, kRest);
}

beginAdjusting({
    change(changed) {
        adjustments = changed;
        comparing = false;
        message.textContent = "";
        byId("before", HTMLButtonElement).ariaPressed = "false";
        showSoon();
        keepSoon();
    },
    async match() {
        const shot = chosen;
        if (!shot) {
            return;
        }
        status.textContent = "Matching …";
        try {
            const found = await match(shot, adjustments);
            if (shot === chosen && !found.warning) {
                adjustments = found.adjustments;
                showAdjustments(adjustments);
                showSoon();
                keepSoon();
            }
            message.textContent = found.warning || found.words;
            status.textContent = found.warning ? "Not matched" : "Matched";
        } catch (error) {
            tell(error);
            status.textContent = "";
        }
    },
    compare(before) {
        comparing = before;
        showSoon();
    },
    drag(on) {
        sphere.takeDrags(on ? (right, down, rolls) =>
            turnBy(rolls ? { roll: right } : { yaw: -right, pitch: down }) : null);
    },
});

// ---- The shot that is looked at.

/** @param {Shot} shot */
async function showFlat(shot) {
    sphere.showNothing();
    flat.src = shot.type === "picture" ? fileAddress(shot.files[0]) : thumbnailAddress(shot);
    flat.alt = shot.files[0];
    message.textContent = shot.why;
}

/** @param {Shot} shot */
function showPair(shot) {
    const movie = shot.type === "movie" && shot.seconds !== null;
    timeLabel.hidden = !movie;
    time.max = String(Math.max(0, (shot.seconds ?? 0) - 0.1));
    adjustments = { ...shot.adjustments };
    showAdjustments(adjustments);
    offerExport(shot, () => adjustments, readOnly);
    showSoon();
}

/** @param {Shot} shot */
async function choose(shot) {
    chosen = shot;
    comparing = false;
    stopComparing();
    clearTimeout(resting);
    sphere.takeDrags(null);
    time.value = "0";
    timeText.textContent = clock(0);
    message.textContent = "";
    markChosen(shot.id);
    title.textContent = shot.files.join(" + ");
    history.replaceState(null, "", `#${encodeURIComponent(shot.id)}`);
    const isSphere = shot.kind === "pair" || shot.kind === "panorama";
    sphereBox.hidden = !isSphere;
    flat.hidden = isSphere;
    below.hidden = false;
    timeLabel.hidden = true;
    tools.hidden = shot.kind !== "pair" && document.querySelectorAll("#job-list li").length === 0;
    byId("adjust", HTMLFormElement).hidden = byId("export", HTMLFormElement).hidden = shot.kind !== "pair";
    try {
        if (shot.kind === "pair") {
            showPair(shot);
        } else if (shot.kind === "panorama") {
            await (shot.type === "movie" ? sphere.showMovie : sphere.showPicture)(fileAddress(shot.files[0]));
        } else {
            await showFlat(shot);
        }
    } catch {
        message.textContent = shot.why || `${shot.files[0]}: cannot be shown; it may be damaged`;
    }
}

time.addEventListener("input", () => {
    timeText.textContent = clock(Number(time.value));
    showSoon();
});

// ---- The folder, again and again.

/** @param {string} name */
function openNamed(name) {
    const shot = shots.find((one) => one.files.includes(name));
    awaited = shot ? "" : name;
    if (shot) {
        choose(shot);
    }
}

async function refresh() {
    const listing = await listShots();
    readOnly = listing.readOnly;
    offerBands(listing.strips);
    const where = byId("folder", HTMLParagraphElement);
    where.textContent = listing.folder.replace(/.*\/(?=.)/, "");
    where.title = listing.folder;
    hint.textContent = listing.error || (listing.shots.length + listing.pending > 0 ? "" :
        "No pictures (.jpg) or movies (.mov, .mp4) in this folder.");
    status.textContent = listing.pending > 0 ? `${listing.pending} files to read` :
        `${listing.shots.length} shots`;
    const before = chosen;
    shots = listing.shots.map((shot) => (before && before.id === shot.id && before.version === shot.version &&
        before.kind === shot.kind ? before : shot));
    showShots(shots, choose);
    if (awaited) {
        openNamed(awaited);
    }
    markChosen(chosen?.id ?? "");
    return listing.pending > 0;
}

let polling = 0;

async function poll() {
    clearTimeout(polling);
    let soon = false;
    try {
        soon = await refresh();
    } catch {
        status.textContent = "The server does not answer";
    }
    polling = window.setTimeout(poll, soon || awaited ? kPollPending : kPoll);
}

// ---- Keys that work wherever no text is typed.

/** @type {Record<string, () => void>} */
const keys = {
    b: () => byId("before", HTMLButtonElement).click(),
    m: () => byId("match", HTMLButtonElement).click(),
    h: sphere.lookAhead,
};

document.addEventListener("keydown", (event) => {
    const typing = event.target instanceof HTMLInputElement && ["text", "number"].includes(event.target.type);
    const act = keys[event.key];
    if (act && !typing && !event.ctrlKey && !event.metaKey && !event.altKey && chosen) {
        act();
    }
});

beginExports(openNamed, () => poll());
awaited = decodeURIComponent(location.hash.slice(1));
poll().then(showExports).then(() => {
    if (awaited && !shots.some((shot) => shot.id === awaited)) {
        awaited = "";
    }
});

// For tests, which look at what is shown.
Object.assign(window, { nq360: sphere });
