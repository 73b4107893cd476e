// The adjustments of a pair: a number and a slider each, what a match finds, and the way back.
import { byId, make } from "./dom.js";

/** @typedef {Record<string, string>} Adjustments */

const form = byId("adjust", HTMLFormElement);

const numbers = [
    { name: "yaw", label: "Yaw", most: 180, step: 0.5 },
    { name: "pitch", label: "Pitch", most: 90, step: 0.5 },
    { name: "roll", label: "Roll", most: 180, step: 0.5 },
    { name: "tilt", label: "Tilt", most: 180, step: 1 },
    { name: "turn1", label: "Lens 1", most: 180, step: 0.1 },
    { name: "turn2", label: "Lens 2", most: 180, step: 0.1 },
    { name: "feather", label: "Feather", least: 0, most: 5.5, step: 0.1, usual: "1.5" },
];
const planes = [
    { name: "gain1", label: "Gain 1", hint: "Y,U,V" },
    { name: "gain2", label: "Gain 2", hint: "Y,U,V" },
    { name: "correct1", label: "Correct 1", hint: "Y,U,V" },
    { name: "correct2", label: "Correct 2", hint: "Y,U,V" },
];

/** @type {Map<string, {set: (text: string) => void}>} */
const fields = new Map();
/** @type {Adjustments} */
let adjustments = {};
/** @type {(adjustments: Adjustments, settled: boolean) => void} */
let changed = () => {};

/**
 * @param {string} name
 * @param {string} text
 * @param {string} usual
 * @param {boolean} settled
 */
function set(name, text, usual, settled) {
    adjustments = { ...adjustments };
    if (text === "" || text === usual) {
        delete adjustments[name];
    } else {
        adjustments[name] = text;
    }
    changed(adjustments, settled);
}

/** @param {typeof numbers[number]} field */
function addNumber({ name, label, least, most, step, usual = "0" }) {
    const limits = { min: String(least ?? -most), max: String(most), step: String(step) };
    const slider = make("input", { type: "range", ...limits, value: usual, ariaLabel: `${label}, slider`, tabIndex: 0 });
    const number = make("input", { type: "number", id: `adjust-${name}`, step: "any", value: usual });
    slider.addEventListener("input", () => {
        number.value = slider.value;
        set(name, slider.value, usual, false);
    });
    slider.addEventListener("change", () => set(name, slider.value, usual, true));
    number.addEventListener("change", () => {
        slider.value = number.value;
        set(name, number.value, usual, true);
    });
    fields.set(name, {
        set: (text) => {
            number.value = slider.value = text || usual;
            number.value = text || usual;
        },
    });
    const title = make("label", { htmlFor: number.id }, label);
    form.append(make("div", { className: "field" }, title, slider, number));
}

/** @param {typeof planes[number]} field */
function addPlanes({ name, label, hint }) {
    const text = make("input", { type: "text", id: `adjust-${name}`, placeholder: hint, autocomplete: "off" });
    text.addEventListener("change", () => set(name, text.value.trim(), "", true));
    fields.set(name, { set: (value) => (text.value = value) });
    form.append(make("div", { className: "field wide" }, make("label", { htmlFor: text.id }, label), text));
}

const band = make("select", { id: "adjust-band" });
/** @type {string[]} */
let strips = [];

function addBand() {
    band.addEventListener("change", () => set("band", band.value, "", true));
    fields.set("band", {
        set: (name) => {
            const names = new Set(["", ...strips, name]);
            band.replaceChildren(...[...names].map((one) => make("option", { value: one }, one || "none")));
            band.value = name;
        },
    });
    form.append(make("div", { className: "field wide" }, make("label", { htmlFor: band.id }, "Band"), band));
}

/**
 * The strips that may lie over the seam.
 * @param {string[]} names
 */
export function offerBands(names) {
    if (names.join("/") !== strips.join("/")) {
        strips = names;
        fields.get("band")?.set(adjustments.band ?? "");
    }
}

/**
 * @param {string} label
 * @param {string} title
 * @param {() => void} act
 */
function makeButton(label, title, act) {
    const button = make("button", { type: "button", title }, label);
    button.addEventListener("click", act);
    return button;
}

/**
 * @param {{change: (adjustments: Adjustments, settled: boolean) => void, match: () => void,
 *          compare: (before: boolean) => void, drag: (on: boolean) => void}} acts
 */
export function beginAdjusting(acts) {
    changed = acts.change;
    const before = make("button", { type: "button", id: "before", ariaPressed: "false" }, "Before");
    before.addEventListener("click", () => {
        const pressed = before.ariaPressed !== "true";
        before.ariaPressed = String(pressed);
        acts.compare(pressed);
    });
    const drag = make("button", { type: "button", id: "drag", ariaPressed: "false" }, "Drag horizon");
    drag.title = "Drags turn the panorama; with Shift they roll it";
    drag.addEventListener("click", () => {
        drag.ariaPressed = String(drag.ariaPressed !== "true");
        acts.drag(drag.ariaPressed === "true");
    });
    const reset = makeButton("Reset", "As it was recorded", () => {
        showAdjustments({});
        changed({}, true);
    });
    const match = makeButton("Match", "Find what makes the lenses meet", acts.match);
    match.id = "match";
    reset.id = "reset";
    form.append(make("h3", {}, "Adjust"), make("div", { className: "row" }, match, before, reset, drag));
    numbers.forEach(addNumber);
    planes.forEach(addPlanes);
    addBand();
    form.addEventListener("submit", (event) => event.preventDefault());
}

/** @param {Adjustments} shown */
export function showAdjustments(shown) {
    adjustments = { ...shown };
    for (const [name, field] of fields) {
        field.set(shown[name] ?? "");
    }
}

/**
 * What rounding left over, so that a slow drag adds up.
 * @type {Record<string, number>}
 */
const rests = {};

/**
 * Adds to numbers, as a drag does.
 * @param {Record<string, number>} steps degrees
 */
export function turnBy(steps) {
    const turned = { ...adjustments };
    for (const [name, step] of Object.entries(steps)) {
        const sum = Number(turned[name] ?? 0) + (rests[name] ?? 0) + step;
        const rounded = Math.round(sum * 10) / 10;
        rests[name] = sum - rounded;
        turned[name] = String(Math.round((rounded - 360 * Math.round(rounded / 360)) * 10) / 10);
    }
    showAdjustments(turned);
    changed(turned, false);
}

export function stopComparing() {
    byId("before", HTMLButtonElement).ariaPressed = "false";
}

export function stopDragging() {
    byId("drag", HTMLButtonElement).ariaPressed = "false";
}
