// Writes a deterministic request corpus (JSON lines {"url","sourceUrl","type"}) to stdout.
// Usage: node make_corpus.mjs easylist.txt easyprivacy.txt [count] [--frames]
// With --frames a third of the requests are frames: sub-frames of every origin the corpus knows
// (ad hosts, exception hosts, path filters, embeds) and top-frame navigations, some of them to
// the hosts of the lists' $document and $subdocument filters.
// Pages of popular sites load their own resources, common CDNs and third parties, tracker and ad
// hosts taken from the lists' "||host^" filters, and addresses built from the lists' path
// filters, so both blocked and allowed requests are plentiful.
import fs from 'node:fs';

const args = process.argv.slice(2).filter(a => a !== '--frames');
const frames = process.argv.includes('--frames');
const [easylistPath, easyprivacyPath, countArg] = args;
const count = Number(countArg ?? 40000);

// A small seeded generator (mulberry32): the same lists give the same corpus.
let seed = 0x5eed1234;
function random() {
    seed = (seed + 0x6d2b79f5) | 0;
    let t = Math.imul(seed ^ (seed >>> 15), 1 | seed);
    t = (t + Math.imul(t ^ (t >>> 7), 61 | t)) ^ t;
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
}
const pick = list => list[Math.floor(random() * list.length)];
const word = () => pick(['main', 'app', 'core', 'home', 'article', 'video', 'user', 'search',
    'story', 'news', 'sport', 'world', 'tech', 'style', 'photo', 'media', 'live', 'v2', 'en',
    'data', 'feed', 'item', 'list', 'page', 'view', 'content', 'assets', 'public']);
const hex = n => Array.from({ length: n }, () => '0123456789abcdef'[Math.floor(random() * 16)]).join('');

const sites = ['cnn.com', 'nytimes.com', 'bbc.co.uk', 'theguardian.com', 'reddit.com',
    'youtube.com', 'amazon.com', 'ebay.com', 'wikipedia.org', 'github.com', 'stackoverflow.com',
    'twitter.com', 'facebook.com', 'instagram.com', 'linkedin.com', 'yahoo.com', 'bing.com',
    'msn.com', 'weather.com', 'espn.com', 'forbes.com', 'bloomberg.com', 'wsj.com',
    'washingtonpost.com', 'huffpost.com', 'buzzfeed.com', 'imdb.com', 'netflix.com', 'twitch.tv',
    'spotify.com', 'apple.com', 'microsoft.com', 'adobe.com', 'wordpress.com', 'medium.com',
    'quora.com', 'pinterest.com', 'tumblr.com', 'etsy.com', 'walmart.com', 'target.com',
    'bestbuy.com', 'booking.com', 'tripadvisor.com', 'zillow.com', 'craigslist.org',
    'dailymail.co.uk', 'lemonde.fr', 'spiegel.de', 'repubblica.it', 'elpais.com', 'asahi.com',
    'news.com.au', 'cbc.ca', 'abc.net.au', 'foxnews.com', 'usatoday.com', 'reuters.com',
    'cnet.com', 'theverge.com', 'wired.com', 'nature.com', 'archive.org', 'speedtest.net'];

const cdns = [
    'https://fonts.googleapis.com/css2?family=Roboto:wght@400;700&display=swap',
    'https://fonts.gstatic.com/s/roboto/v30/KFOmCnqEu92Fr1Mu4mxK.woff2',
    'https://cdnjs.cloudflare.com/ajax/libs/jquery/3.6.0/jquery.min.js',
    'https://ajax.googleapis.com/ajax/libs/jquery/3.5.1/jquery.min.js',
    'https://cdn.jsdelivr.net/npm/bootstrap@5.3.0/dist/js/bootstrap.bundle.min.js',
    'https://unpkg.com/react@18/umd/react.production.min.js',
    'https://code.jquery.com/jquery-3.7.1.min.js',
    'https://i.ytimg.com/vi/dQw4w9WgXcQ/hqdefault.jpg',
    'https://upload.wikimedia.org/wikipedia/commons/a/a9/Example.jpg',
    'https://images.unsplash.com/photo-1500530855697-b586d89ba3ee?w=800',
    'https://use.typekit.net/abc1def.css',
    'https://stackpath.bootstrapcdn.com/font-awesome/4.7.0/css/font-awesome.min.css',
    'https://maps.googleapis.com/maps/api/js?key=AIza&callback=initMap',
    'https://www.gstatic.com/recaptcha/releases/abc/recaptcha__en.js',
    'https://www.google.com/recaptcha/api.js',
    'https://api.github.com/repos/x/y',
    'https://player.vimeo.com/video/123456',
    'https://www.youtube.com/embed/dQw4w9WgXcQ',
    'https://js.stripe.com/v3/',
    'https://cdn.shopify.com/s/files/1/0000/0001/t/1/assets/theme.js',
    'https://s3.amazonaws.com/bucket/file.png',
    'https://d1234abcd.cloudfront.net/static/app.js',
    'https://polyfill.io/v3/polyfill.min.js?features=default',
    'https://platform.twitter.com/widgets.js',
    'https://connect.facebook.net/en_US/sdk.js',
];

const wellKnown = [
    'https://www.googletagmanager.com/gtm.js?id=GTM-ABC123',
    'https://www.google-analytics.com/analytics.js',
    'https://www.google-analytics.com/g/collect?v=2&tid=G-XYZ',
    'https://securepubads.g.doubleclick.net/tag/js/gpt.js',
    'https://pagead2.googlesyndication.com/pagead/js/adsbygoogle.js',
    'https://connect.facebook.net/en_US/fbevents.js',
    'https://www.facebook.com/tr/?id=123&ev=PageView',
    'https://sb.scorecardresearch.com/beacon.js',
    'https://static.criteo.net/js/ld/publishertag.js',
    'https://cdn.taboola.com/libtrc/site/loader.js',
    'https://widgets.outbrain.com/outbrain.js',
    'https://c.amazon-adsystem.com/aax2/apstag.js',
    'https://ib.adnxs.com/ut/v3/prebid',
    'https://bat.bing.com/bat.js',
    'https://static.hotjar.com/c/hotjar-123.js',
    'https://cdn.segment.com/analytics.js/v1/key/analytics.min.js',
    'https://js-agent.newrelic.com/nr-1234.min.js',
    'https://script.crazyegg.com/pages/scripts/0011/1234.js',
    'https://www.clarity.ms/tag/abc123',
    'https://s.yimg.com/wi/ytc.js',
];

const types = [['script', 30], ['image', 28], ['stylesheet', 9], ['xmlhttprequest', 15],
    ['sub_frame', 5], ['font', 4], ['media', 2], ['ping', 3], ['other', 2], ['websocket', 2]];
if (frames) {
    types.push(['sub_frame', 30], ['main_frame', 10]);
}
const typeTotal = types.reduce((sum, [, w]) => sum + w, 0);
function randomType() {
    let r = random() * typeTotal;
    for (const [name, weight] of types) {
        if ((r -= weight) < 0) return name;
    }
    return 'other';
}
const extensionFor = {
    script: ['.js', '.min.js', '.js?v=' + 3], image: ['.png', '.jpg', '.gif', '.webp', '.svg'],
    stylesheet: ['.css'], font: ['.woff2', '.woff'], media: ['.mp4', '.m3u8'],
    xmlhttprequest: ['', '.json'], sub_frame: ['.html', ''], main_frame: ['.html', ''], ping: [''], other: [''], websocket: [''],
};
const typeForUrl = url => {
    if (/\.m?js(\?|$)/.test(url)) return 'script';
    if (/\.(png|jpe?g|gif|webp|svg)(\?|$)/.test(url)) return 'image';
    if (/\.css(\?|$)|css2\?/.test(url)) return 'stylesheet';
    if (/\.woff2?(\?|$)/.test(url)) return 'font';
    return randomType();
};

// Hosts and paths taken from the lists.
const hosts = [];
const exceptionHosts = [];
const paths = [];
const documentHosts = [];
const exceptionPaths = [];
for (const file of [easylistPath, easyprivacyPath]) {
    for (const line of fs.readFileSync(file, 'utf8').split('\n')) {
        if (line.includes('#') || line.startsWith('!') || line.startsWith('[')) continue;
        const frameHost = /^(?:@@)?\|\|([a-z0-9.-]+)\^?\$(?:.*,)?(document|doc|subdocument|frame)(,|$)/.exec(line);
        if (frameHost) documentHosts.push(frameHost[1]);
        const excepted = /^@@\|\|([a-z0-9.-]+\/[-_./?=&a-z0-9*^]*)(\$|$)/i.exec(line);
        if (excepted) exceptionPaths.push(excepted[1]);
        let m = /^\|\|([a-z0-9.-]+)\^(\$(third-party|script|image|xmlhttprequest|[a-z,~-]*))?$/.exec(line);
        if (m) { hosts.push(m[1]); continue; }
        m = /^@@\|\|([a-z0-9.-]+)[\^/]/.exec(line);
        if (m) { exceptionHosts.push(m[1]); continue; }
        if (/^[/\-_.?&=a-z0-9*^]+$/i.test(line) && line.length > 4 && !line.startsWith('/') === false
            && !(line.startsWith('/') && line.endsWith('/'))) {
            paths.push(line);
        } else if (/^[-_.a-z0-9]+[/?=&_.-][-_.?&=/a-z0-9*^]*$/i.test(line) && line.length > 5) {
            paths.push(line);
        }
    }
}
const fillPath = p => p.replace(/\*/g, () => word()).replace(/\^/g, () => pick(['/', '?', '&']))
    .replace(/\|/g, '');

function resourcePath(type) {
    const ext = pick(extensionFor[type] ?? ['']);
    return `/${word()}/${word()}-${hex(6)}${ext}`;
}

const out = [];
while (out.length < count) {
    const site = pick(sites);
    const page = `https://www.${site}/${word()}/${word()}-${hex(4)}`;
    const requests = 20 + Math.floor(random() * 60);
    for (let i = 0; i < requests && out.length < count; ++i) {
        const r = random();
        let type = randomType();
        let url;
        if (r < 0.33) {
            url = `https://www.${site}${resourcePath(type)}`;
        } else if (r < 0.43) {
            url = `https://${pick(['static', 'img', 'cdn', 'media', 'assets', 'api'])}.${site}${resourcePath(type)}`;
        } else if (r < 0.56) {
            url = pick(cdns);
            type = typeForUrl(url);
        } else if (r < 0.74) {
            const host = pick(hosts);
            url = `https://${random() < 0.3 ? word() + '.' : ''}${host}${resourcePath(type)}`;
        } else if (r < 0.86) {
            let path = fillPath(pick(paths));
            if (!path.startsWith('/') && !path.startsWith('.') && !path.startsWith('?')) path = '/' + path;
            const base = random() < 0.5 ? `https://www.${site}` : `https://${word()}.${pick(sites)}`;
            url = base + (path.startsWith('/') ? path : '/x' + path);
        } else if (r < 0.93) {
            url = pick(wellKnown);
            type = typeForUrl(url);
        } else {
            url = `https://${pick(exceptionHosts)}${resourcePath(type)}`;
        }
        if (frames && (type === 'sub_frame' || type === 'main_frame') && random() < 0.35) {
            // Frames of the kinds the lists name: their $document and $subdocument hosts, the
            // addresses their exceptions allow, and embeds.
            const f = random();
            if (f < 0.3) {
                url = `https://${random() < 0.3 ? word() + '.' : ''}${pick(documentHosts)}/${word()}`;
            } else if (f < 0.7) {
                url = `https://${fillPath(pick(exceptionPaths))}`;
            } else {
                url = pick([...wellKnown, ...cdns]);
            }
        }
        // A top-frame navigation is its own page: the party of its load is its own.
        const source = type === 'main_frame' ? url : page;
        if (type === 'websocket') url = url.replace(/^https:/, 'wss:');
        out.push(JSON.stringify({ url, sourceUrl: source, type }));
    }
}
process.stdout.write(out.join('\n') + '\n');
