// The page: which shot is looked at, and what follows from it.
import { fileAddress, listShots, match, preview, thumbnailAddress } from "./api.js";
import { beginAdjusting, offerBands, showAdjustments, stopComparing, stopDragging, turnBy } from "./adjust.js";
import { byId, clock, say, wordsOf } from "./dom.js";
import { beginExports, offerExport } from "./exports.js";
import { beginKeeping, expectList, kRest, lookOf, setLook, setReadOnly } from "./keeper.js";
import { markChosen, showShots } from "./list.js";
import * as sphere from "./sphere.js";

/** @typedef {import("./api.js").Shot} Shot */

const kDragged = 1024; // pixels of a preview while the hand moves, and when it rests
const kRested = 2880;
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
let comparing = false;
let readOnly = false;
/** Name of a file that is to be opened once it is in the list. */
let awaited = "";

/** @param {Shot} shot */
const isChosen = (shot) => chosen?.id === shot.id;

/** @param {unknown} error */
function tell(error) {
    message.textContent = wordsOf(error);
}

// ---- The preview: one at a time, and always the last that was wanted.

/** @type {number|null} */
let wanted = null;
let busy = false;
let resting = 0;
/** Whether the message tells why there was no preview. */
let refused = false;

/**
 * @param {Shot} shot
 * @param {number} width
 */
async function makePreview(shot, width) {
    const picture = await preview(shot, comparing ? {} : lookOf(shot), width, Number(time.value));
    if (isChosen(shot) && await sphere.showPicture(URL.createObjectURL(picture)) && isChosen(shot)) {
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
    while (wanted !== null && chosen) {
        const next = wanted;
        const shot = chosen;
        wanted = null;
        await makePreview(shot, next).catch((error) => {
            if (isChosen(shot)) {
                refused = true;
                tell(error);
            }
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

function stopShowing() {
    wanted = null;
    refused = false;
    clearTimeout(resting);
}

// ---- Adjustments

/**
 * @param {Shot} shot
 * @param {Record<string, string>} look
 */
function change(shot, look) {
    setLook(shot, look);
    if (isChosen(shot)) {
        comparing = false;
        stopComparing();
        showSoon();
    }
}

let matching = false;
const matched = ["turn1", "turn2", "gain1", "gain2", "correct1", "correct2"];

/**
 * Takes what a match found; what else was changed in the meantime stays.
 * @param {Shot} shot
 * @param {Record<string, string>} found
 */
function takeMatch(shot, found) {
    const look = { ...lookOf(shot) };
    for (const name of matched) {
        delete look[name];
        if (name in found) {
            look[name] = found[name];
        }
    }
    change(shot, look);
    if (isChosen(shot)) {
        showAdjustments(look);
    }
}

/** @param {Shot} shot */
async function matchShot(shot) {
    try {
        const found = await match(shot, lookOf(shot));
        if (!found.warning) {
            takeMatch(shot, found.adjustments);
        }
        if (isChosen(shot)) {
            message.textContent = found.warning || found.words;
        }
    } catch (error) {
        if (isChosen(shot)) {
            tell(error);
        }
    }
}

beginAdjusting({
    change(changed) {
        if (chosen) {
            message.textContent = "";
            change(chosen, changed);
        }
    },
    async match() {
        if (!chosen || matching) {
            return;
        }
        matching = true;
        showStatus();
        await matchShot(chosen);
        matching = false;
        showStatus();
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
beginKeeping(tell);

// ---- The shot that is looked at.

/** @param {Shot} shot */
function showFlat(shot) {
    sphere.showNothing();
    flat.src = shot.type === "picture" ? fileAddress(shot) : thumbnailAddress(shot);
    flat.alt = shot.files[0];
    message.textContent = shot.why;
}

/** @param {Shot} shot */
function showPair(shot) {
    timeLabel.hidden = shot.type !== "movie" || shot.seconds === null;
    time.max = String(Math.max(0, (shot.seconds ?? 0) - 0.1));
    showAdjustments(lookOf(shot));
    offerExport(shot, () => lookOf(shot), readOnly);
    showSoon();
}

/** @param {Shot} shot */
async function showMade(shot) {
    if (shot.type === "picture") {
        await sphere.showPicture(fileAddress(shot));
    } else if (await sphere.showMovie(fileAddress(shot))) {
        followMovie(/** @type {HTMLVideoElement} */ (sphere.video()));
    }
}

/**
 * The time slider is the movie's, as it can be moved by keys.
 * @param {HTMLVideoElement} movie
 */
function followMovie(movie) {
    time.max = String(movie.duration);
    timeLabel.hidden = false;
    movie.addEventListener("timeupdate", () => {
        if (movie === sphere.video()) {
            time.value = String(movie.currentTime);
            say(timeText, clock(movie.currentTime));
        }
    });
}

/** @param {Shot} shot */
async function choose(shot) {
    chosen = shot;
    awaited = "";
    comparing = false;
    stopComparing();
    stopShowing();
    stopDragging();
    sphere.takeDrags(null);
    time.value = "0";
    timeText.textContent = clock(0);
    message.textContent = "";
    markChosen(shot.id);
    title.textContent = shot.files.join(" + ");
    history.replaceState(null, "", `#${encodeURIComponent(shot.id)}`);
    const isPair = shot.kind === "pair";
    const isSphere = isPair || shot.kind === "panorama";
    sphereBox.hidden = !isSphere;
    sphereBox.dataset.width = "";
    flat.hidden = isSphere;
    below.hidden = false;
    timeLabel.hidden = true;
    tools.hidden = !isPair && document.querySelectorAll("#job-list li").length === 0;
    byId("adjust", HTMLFormElement).hidden = byId("export", HTMLFormElement).hidden = !isPair;
    try {
        await (isPair ? showPair : isSphere ? showMade : showFlat)(shot);
    } catch (error) {
        if (isChosen(shot)) {
            message.textContent = shot.why || `${shot.files[0]}: ${wordsOf(error)}`;
        }
    }
}

time.addEventListener("input", () => {
    timeText.textContent = clock(Number(time.value));
    const movie = sphere.video();
    if (movie) {
        movie.currentTime = Number(time.value);
    } else {
        showSoon();
    }
});

// ---- The folder, again and again.

/** @param {string} name */
function openNamed(name) {
    const shot = shots.find((one) => one.files.includes(name));
    awaited = name;
    if (shot) {
        choose(shot);
    }
}

/**
 * The chosen shot as the list has it now, with what another window has adjusted.
 * @param {Record<string, string>} before what it was adjusted to
 */
function followChosen(before) {
    const now = shots.find((shot) => shot.id === chosen?.id && shot.kind === chosen.kind);
    chosen = now ?? chosen;
    if (now?.kind === "pair" && !isSame(lookOf(now), before)) {
        showAdjustments(lookOf(now));
        showSoon();
    }
}

/**
 * @param {Record<string, string>} one
 * @param {Record<string, string>} other
 */
function isSame(one, other) {
    const names = Object.keys({ ...one, ...other });
    return names.every((name) => one[name] === other[name]);
}

let counted = "";

function showStatus() {
    say(status, matching ? "Matching …" : counted);
}

async function refresh() {
    const asked = awaited;
    const takeList = expectList();
    const listing = await listShots();
    const { pending } = listing;
    readOnly = listing.readOnly;
    setReadOnly(readOnly);
    offerBands(listing.strips);
    const where = byId("folder", HTMLParagraphElement);
    say(where, listing.folder.replace(/.*\/(?=.)/, ""));
    where.title = listing.folder;
    say(hint, listing.error || (listing.shots.length + pending > 0 ? "" :
        "No pictures (.jpg) or movies (.mov, .mp4) in this folder."));
    counted = pending > 0 ? `${pending} files to read` : `${listing.shots.length} shots`;
    showStatus();
    shots = listing.shots;
    const before = chosen ? lookOf(chosen) : {};
    takeList(shots);
    followChosen(before);
    showShots(shots, openNamed);
    if (awaited) {
        openNamed(awaited);
    }
    if (pending === 0 && awaited === asked) {
        awaited = ""; // it is not in the folder
    }
    markChosen(chosen?.id ?? "");
    return pending > 0;
}

let polling = 0;

async function poll() {
    clearTimeout(polling);
    let soon = false;
    try {
        soon = await refresh();
    } catch (error) {
        counted = wordsOf(error);
        showStatus();
    }
    clearTimeout(polling);
    polling = window.setTimeout(poll, soon || awaited ? kPollPending : kPoll);
}

// ---- Keys that work wherever no text is typed.

/** @param {string} id */
function pressForPair(id) {
    if (chosen?.kind === "pair") {
        byId(id, HTMLButtonElement).click();
    }
}

/** @type {Record<string, () => void>} */
const keys = {
    b: () => pressForPair("before"),
    m: () => pressForPair("match"),
    h: sphere.lookAhead,
};

/** @param {EventTarget|null} place */
const isTyping = (place) => place instanceof HTMLSelectElement ||
    (place instanceof HTMLInputElement && ["text", "number"].includes(place.type));

document.addEventListener("keydown", (event) => {
    const act = keys[event.key.toLowerCase()];
    if (act && !event.repeat && !isTyping(event.target) && !event.ctrlKey && !event.metaKey && !event.altKey) {
        act();
    }
});

function nameInAddress() {
    try {
        return decodeURIComponent(location.hash.slice(1));
    } catch {
        return ""; // an address that somebody cut off
    }
}

awaited = nameInAddress();
beginExports(openNamed, poll);
poll();

// For tests, which look at what is shown.
Object.assign(window, { nq360: sphere });
