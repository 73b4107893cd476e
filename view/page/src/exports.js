// Exports: what is to be made, and how far those are that were asked for.
import { addExport, cancelExport, listExports, Refused, space } from "./api.js";
import { byId, clock, make, say, size, wordsOf } from "./dom.js";

/** @typedef {import("./api.js").Shot} Shot */
/** @typedef {import("./api.js").ExportEvent} ExportEvent */

const form = byId("export", HTMLFormElement);
const list = byId("job-list", HTMLUListElement);
const ended = ["finished", "cancelled", "failed"];
const kRetry = 1000; // ms

/**
 * @typedef {{item: HTMLLIElement, state: HTMLElement, told: HTMLElement, bar: HTMLProgressElement,
 *            cancel: HTMLButtonElement, open: HTMLButtonElement}} Job
 * @type {Map<number, Job>}
 */
const jobs = new Map();
/** Those that were ordered here, or seen before they ended: what they make is opened. */
const expected = new Set();
/** @type {EventSource|null} */
let watched = null;
/** @type {(name: string) => void} */
let open = () => {};
let made = () => {};
/** Shows how much room there is now. */
let showRoom = () => {};

/** @param {Shot} shot */
function fieldsOf(shot) {
    const usual = shot.type === "movie" ? Math.min(shot.width * 2, 3840) : shot.width * 2;
    const widest = { 1440: 2880, 1936: 3840, 3888: 7680 }[shot.width] ?? usual;
    const full = shot.type === "movie" ? Math.min(widest, 3840) : widest;
    const sizes = [full, 5760, 3840, 2880, 1920].filter((one, at, all) => one <= full && all.indexOf(one) === at);
    /** @type {HTMLElement[]} */
    const fields = [
        make("label", { htmlFor: "export-size" }, "Size"),
        make("select", { id: "export-size", name: "size" }, ...sizes.map((one) => make("option", {}, `${one}x${one / 2}`))),
    ];
    if (shot.type === "picture") {
        fields.push(make("label", { htmlFor: "export-quality" }, "Quality"),
            make("input", { id: "export-quality", name: "quality", type: "number", min: "1", max: "100", value: "95" }));
        return fields;
    }
    const sounds = [["1", "of lens 1"], ["2", "of lens 2"], ["none", "none"]];
    fields.push(
        make("label", { htmlFor: "export-bit-rate" }, "Bit rate"),
        make("input", { id: "export-bit-rate", name: "bit-rate", placeholder: "as the lenses", autocomplete: "off" }),
        make("label", { htmlFor: "export-sound" }, "Sound"),
        make("select", { id: "export-sound", name: "sound" },
            ...sounds.map(([value, label]) => make("option", { value }, label))),
        make("label", { htmlFor: "export-start" }, "Start"),
        make("input", { id: "export-start", name: "start", placeholder: "0:00", autocomplete: "off" }),
        make("label", { htmlFor: "export-end" }, "End"),
        make("input", { id: "export-end", name: "end", autocomplete: "off",
            placeholder: shot.seconds === null ? "" : clock(shot.seconds) }),
    );
    return fields;
}

/**
 * @param {string} name
 * @param {string} label
 */
const check = (name, label) =>
    make("label", { className: "check" }, make("input", { type: "checkbox", name }), label);

function settings() {
    /** @type {Record<string, string>} */
    const chosen = {};
    for (const [name, value] of new FormData(form)) {
        if (value !== "") {
            chosen[name] = value === "on" ? "true" : String(value);
        }
    }
    return chosen;
}

/**
 * @param {HTMLElement} place
 * @param {Shot} shot
 */
async function showSpace(place, shot) {
    const { free, needed } = await space(shot);
    const little = free < needed;
    place.className = little ? "failed" : "soft";
    place.textContent = little
        ? `Not enough room: ${size(needed)} are needed, ${size(free)} are free.`
        : `${size(free)} free`;
}

/**
 * @param {object} order
 * @param {HTMLElement} told
 */
async function place(order, told) {
    try {
        const { id } = await addExport(order);
        expected.add(id);
        told.textContent = "";
        await showExports();
        jobs.get(id)?.item.scrollIntoView({ block: "nearest" });
    } catch (error) {
        told.className = "failed";
        told.textContent = wordsOf(error);
    }
}

/**
 * @param {Shot} shot
 * @param {() => Record<string, string>} adjustments
 * @param {boolean} readOnly
 */
export function offerExport(shot, adjustments, readOnly) {
    const told = make("p", { role: "status" });
    const room = make("p", { className: "soft", id: "room" });
    const button = make("button", { type: "submit", disabled: readOnly }, "Export");
    const buttons = make("div", { className: "row" }, button);
    const rows = [];
    const fields = fieldsOf(shot);
    for (let at = 0; at < fields.length; at += 2) {
        rows.push(make("div", { className: "field wide" }, fields[at], fields[at + 1]));
    }
    if (shot.type === "movie") {
        rows.push(check("aac", "Sound as AAC, for sites"), check("web", "Plays while it loads"));
        const sound = make("button", { type: "button", disabled: readOnly }, "Sound to a file");
        sound.addEventListener("click", () => {
            const from = settings().sound === "2" ? 1 : 0;
            place({ kind: "sound", file: shot.files[from], aac: settings().aac === "true" }, told);
        });
        buttons.append(sound);
    }
    rows.push(check("partial", "Take what there is of damaged files"));
    form.replaceChildren(make("h3", {}, "Export"), ...rows, buttons, room, told);
    form.onsubmit = (event) => {
        event.preventDefault();
        place({ kind: "panorama", shot: shot.id, adjustments: adjustments(), settings: settings() }, told);
    };
    showRoom = () => {
        showSpace(room, shot).catch(() => (room.textContent = ""));
    };
    if (readOnly) {
        showRoom = () => {};
        room.textContent = "Nothing can be exported: nq360 view was begun with --read-only.";
    }
    showRoom();
}

/** @param {ExportEvent} event */
function progressText(event) {
    if (event.state !== "progress" || !event.frame_count || !event.frames || !event.seconds) {
        return event.state;
    }
    const rate = event.frame_count / event.seconds;
    const left = Math.max(0, (event.frames - event.frame_count) / rate);
    return `${event.frame_count} of ${event.frames} · ${rate.toFixed(1)} per second · ${clock(left)} left`;
}

/**
 * Made once and changed from then on: a button that were made anew under the mouse would not be clicked.
 * @param {number} id
 * @param {string} name
 */
function makeJob(id, name) {
    const state = make("p", { className: "soft" });
    const told = make("p");
    const bar = make("progress", { ariaLabel: name });
    const cancel = make("button", { type: "button", ariaLabel: `Cancel ${name}` }, "Cancel");
    const show = make("button", { type: "button", ariaLabel: `Open ${name}`, hidden: true }, "Open");
    const item = make("li", { tabIndex: -1 }, make("p", {}, name), state, told, bar, cancel, show);
    cancel.addEventListener("click", () => {
        cancelExport(id).then(showExports).catch((error) => say(told, wordsOf(error)));
    });
    show.addEventListener("click", () => open(name));
    list.prepend(item);
    byId("tools", HTMLElement).hidden = false;
    const job = { item, state, told, bar, cancel, open: show };
    jobs.set(id, job);
    return job;
}

/**
 * @param {Job} job
 * @param {ExportEvent} event
 */
function showEnd(job, event) {
    const focused = document.activeElement === job.cancel;
    job.bar.hidden = job.cancel.hidden = true;
    job.open.hidden = event.state !== "finished" || !/\.(jpg|mov|mp4)$/.test(event.name);
    if (focused) {
        (job.open.hidden ? job.item : job.open).focus();
    }
    if (event.state === "failed") {
        job.state.className = job.told.className = "failed";
    }
}

/**
 * @param {number} id
 * @param {ExportEvent} event
 */
function showExport(id, event) {
    const job = jobs.get(id) ?? makeJob(id, event.name);
    if (ended.includes(job.item.dataset.state ?? "")) {
        return; // a list that was asked for before the end tells less
    }
    job.item.dataset.state = event.state;
    say(job.state, progressText(event));
    say(job.told, event.message ?? "");
    if (event.frames) {
        job.bar.max = event.frames;
        job.bar.value = event.frame_count ?? 0;
    }
    if (!ended.includes(event.state)) {
        expected.add(id);
        return;
    }
    showEnd(job, event);
    if (expected.delete(id)) {
        made();
        showRoom();
        if (event.state === "finished" && /-360(-\d+)?\.(jpg|mov|mp4)$/.test(event.name)) {
            open(event.name);
        }
    }
}

/** @param {number} id */
function watch(id) {
    const source = new EventSource(`/api/exports/${id}`);
    watched = source;
    const stop = () => {
        source.close();
        watched = null;
    };
    source.onmessage = (message) => {
        const event = JSON.parse(message.data);
        showExport(id, event);
        if (ended.includes(event.state)) {
            stop();
            showExports().catch(showLater);
        }
    };
    source.onerror = () => {
        stop();
        showLater();
    };
}

/** The machine slept, or too many watch: after a while it may go on. */
function showLater() {
    window.setTimeout(() => showExports().catch((error) => error instanceof Refused || showLater()), kRetry);
}

/** Shows all exports and watches the one that runs: one connection is enough. */
async function showExports() {
    const { exports } = await listExports();
    for (const event of exports) {
        showExport(Number(event.id), event);
    }
    const running = exports.find((event) => !ended.includes(event.state));
    if (running && !watched) {
        watch(Number(running.id));
    }
}

/**
 * @param {(name: string) => void} openMade shows what was made
 * @param {() => void} afterEach
 */
export function beginExports(openMade, afterEach) {
    open = openMade;
    made = afterEach;
    showExports().catch(showLater);
}
