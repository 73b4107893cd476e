// What the shots are adjusted to. What was set here counts until the server's list tells it too; the server keeps it
// when the hand rests.
import { keep } from "./api.js";

/** @typedef {import("./api.js").Shot} Shot */
/** @typedef {Record<string, string>} Look */

export const kRest = 250; // ms after which the hand rests

/**
 * What the server told last.
 * @type {Map<string, Look>}
 */
let listed = new Map();
/** @type {Map<string, {look: Look, state: "waiting"|"sent"|"kept"}>} */
const own = new Map();
let resting = 0;
let sending = false;
let writes = true;
/** @type {(error: unknown) => void} */
let tell = () => {};

/** @param {Shot} shot */
export const lookOf = (shot) => own.get(shot.id)?.look ?? listed.get(shot.id) ?? {};

/**
 * @param {Shot} shot
 * @param {Look} look
 */
export function setLook(shot, look) {
    own.delete(shot.id); // so that it comes last, where keepAll has not been yet
    own.set(shot.id, { look, state: "waiting" });
    clearTimeout(resting);
    resting = window.setTimeout(keepAll, kRest);
}

/** One at a time: of two on their way at once, the older might be the last to arrive. */
async function keepAll() {
    if (sending || !writes) {
        return;
    }
    sending = true;
    for (const [id, one] of own) {
        if (one.state === "waiting") {
            one.state = "sent";
            await keep(id, one.look).then(() => (one.state = "kept"), tell);
        }
    }
    sending = false;
}

/** Whoever reloads within the rest loses nothing. */
function keepNow() {
    for (const [id, one] of own) {
        if (one.state === "waiting" && writes) {
            one.state = "sent";
            keep(id, one.look).catch(() => {});
        }
    }
}

/**
 * To be called before a list is asked for, and what it returns with the list: that tells all that was kept by then.
 * @returns {(shots: Shot[]) => void}
 */
export function expectList() {
    const kept = [...own].filter(([, one]) => one.state === "kept");
    return (shots) => {
        listed = new Map(shots.map((shot) => [shot.id, shot.adjustments]));
        for (const [id, one] of kept) {
            if (own.get(id) === one) {
                own.delete(id);
            }
        }
    };
}

/** @param {boolean} readOnly */
export function setReadOnly(readOnly) {
    writes = !readOnly;
}

/** @param {(error: unknown) => void} fail */
export function beginKeeping(fail) {
    tell = fail;
    window.addEventListener("pagehide", keepNow);
}
