// HTML QC reports: the data goes in as JSON, an inline script draws the timeline and the tables.
#include "html_report.h"

#include <cmath>
#include <cstdio>
#include <fstream>

#include "json_out.h"
#include "svg_plot.h"
#include "tool.h"

namespace kvtool {
namespace {

// JSON safe inside a <script> element: no "</" can close it.
std::string ScriptJson(const Json &doc) {
  std::string text = doc.dump(-1, ' ', false, Json::error_handler_t::replace), out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '<' && i + 1 < text.size() && text[i + 1] == '/') out += "<\\";
    else out += text[i];
  }
  return out;
}

std::string Num(double v, int decimals = 1) {
  if (v <= -199.0) return "&minus;&infin;";
  char buf[32];
  std::snprintf(buf, sizeof(buf), "%.*f", decimals, v);
  return buf;
}

// A curve with one decimal and null for "not measured": a 3-hour programme stays under 1 MB per curve.
Json Curve(const std::vector<double> &values) {
  Json out = Json::array();
  for (double v : values) {
    if (v <= -199.0 || !std::isfinite(v)) out.push_back(nullptr);
    else out.push_back(std::round(v * 10) / 10);
  }
  return out;
}

const char *const kStyle = R"CSS(
body{font:14px/1.4 system-ui,sans-serif;margin:16px 24px;color:#1d2330;background:#fafbfc}
h1{font-size:20px;margin:0 0 8px;word-break:break-all}h2{font-size:16px;margin:22px 0 8px}
.verdict{display:inline-block;padding:4px 14px;border-radius:4px;font-weight:700;font-size:18px;color:#fff}
.pass{background:#2a9d3f}.fail{background:#c62828}
.info{display:grid;grid-template-columns:repeat(auto-fill,minmax(210px,1fr));gap:4px 18px;margin:10px 0}
.info div span{color:#5a6270;margin-right:6px}
ul.reasons{margin:6px 0;color:#b71c1c}
table{border-collapse:collapse;background:#fff}td,th{border:1px solid #d8dce3;padding:3px 9px;text-align:left;white-space:nowrap}
th{background:#eef1f5}th.sort{cursor:pointer;user-select:none}th.sort:after{content:" \2195";color:#99a}
td.num{text-align:right;font-variant-numeric:tabular-nums}td.bad{color:#c62828;font-weight:600}
.swatch{display:inline-block;width:10px;height:10px;border-radius:2px;margin-right:6px;vertical-align:middle}
#tools button{margin-right:4px}#tools span{margin-left:10px;color:#5a6270}
#chart{border:1px solid #d8dce3;background:#fff;width:100%;overflow:hidden;cursor:grab}
#detail{min-height:22px;margin:6px 0;padding:4px 8px;background:#fff8e1;border:1px solid #f0d98c;display:inline-block}
tr.sel td{background:#fff3c4}#errors{color:#c62828}
svg text{font:11px system-ui,sans-serif;fill:#3a4150}
)CSS";

// Draws the timeline from DATA; the view [v0, v1] seconds follows zoom and pan.
const char *const kScript = R"JS(
window.onerror=function(m,s,l){var e=document.getElementById('errors');e.textContent+=m+' (line '+l+')\n';};
(function(){
var D=JSON.parse(document.getElementById('data').textContent);
var NS='http://www.w3.org/2000/svg',chart=document.getElementById('chart'),detail=document.getElementById('detail');
var COL=['#1f77b4','#d62728','#2ca02c','#ff7f0e','#9467bd','#8c564b','#e377c2','#17becf','#bcbd22',
 '#393b79','#7f7f7f','#000000','#aec7e8','#ff9896','#98df8a','#ffbb78','#c5b0d5','#c49c94'];
var rules=[];D.events.forEach(function(e){if(rules.indexOf(e.rule)<0)rules.push(e.rule);});rules.sort(function(a,b){return a-b;});
// Colours go to the rules present in this programme, so up to 12 rules never share a hue.
function col(r){return COL[rules.indexOf(r)%COL.length];}
var names={};D.events.forEach(function(e){names[e.rule]=e.name;});
var T=Math.max(D.seconds,0.1),v0=0,v1=T,sel=-1;
// "#view=A-B" in the address opens the timeline on seconds A to B (a link to a passage).
var hv=/view=([\d.]+)-([\d.]+)/.exec(location.hash);
if(hv&&+hv[2]>+hv[1]){v0=Math.max(0,+hv[1]);v1=Math.min(T,+hv[2]);}
var L=150,R=44,LH=200,PH=70,RH=18,top=10,GAP=22;
function el(n,a,p){var x=document.createElementNS(NS,n);for(var k in a)x.setAttribute(k,a[k]);if(p)p.appendChild(x);return x;}
function tc(s){var h=Math.floor(s/3600),m=Math.floor(s/60)%60,x=s-60*Math.floor(s/60);
 return (h<10?'0':'')+h+':'+(m<10?'0':'')+m+':'+(x<10?'0':'')+x.toFixed(x<10&&v1-v0<20?1:0);}
function fmt(v){return v===null||v===undefined?'\u2212\u221e':v.toFixed(1);}
function show(i){var e=D.events[i];sel=i;
 detail.textContent=e.name+'  in '+e.in+'  out '+e.out+'  ('+e.frames+' frames)  channels '+e.channels+'  value '+e.value.toPrecision(4);
 document.querySelectorAll('#events tbody tr').forEach(function(r){r.className=(+r.dataset.i===i?'ev-row sel':'ev-row');});draw();}
function path(vals,x,y,g,color,w){
 var n=vals.length,st=D.step,W=x(v1)-x(v0),i0=Math.max(0,Math.floor(v0/st)),i1=Math.min(n,Math.ceil(v1/st)+1);
 var per=Math.max(1,Math.floor((i1-i0)/(2*W))),d='',pen=false;
 for(var i=i0;i<i1;i+=per){var lo=null,hi=null;
  for(var j=i;j<Math.min(i1,i+per);j++){var v=vals[j];if(v===null)continue;if(lo===null||v<lo)lo=v;if(hi===null||v>hi)hi=v;}
  if(lo===null){pen=false;continue;}var px=x((i+0.5)*st).toFixed(1);
  d+=(pen?'L':'M')+px+' '+y(hi).toFixed(1);if(lo!==hi)d+='L'+px+' '+y(lo).toFixed(1);pen=true;}
 if(d)el('path',{d:d,fill:'none',stroke:color,'stroke-width':w},g);}
function draw(){
 var W=Math.max(chart.clientWidth,600),H=top+LH+GAP+PH+GAP+Math.max(1,rules.length)*RH+36;
 chart.innerHTML='';var s=el('svg',{width:W,height:H},chart);
 var x=function(t){return L+(t-v0)/(v1-v0)*(W-L-R);};
 var ly=function(v){v=Math.max(-60,Math.min(0,v));return top+(-v)/60*LH;};
 var py0=top+LH+GAP,py=function(v){v=Math.max(-60,Math.min(0,v));return py0+(-v)/60*PH;};
 var ry0=py0+PH+GAP;
 el('rect',{x:L,y:top,width:W-L-R,height:LH,fill:'#f7f9fb'},s);
 el('rect',{x:L,y:py0,width:W-L-R,height:PH,fill:'#f7f9fb'},s);
 if(D.target>-199){var b=el('rect',{x:L,y:ly(D.target+D.tolerance),width:W-L-R,height:Math.max(1,ly(D.target-D.tolerance)-ly(D.target+D.tolerance)),fill:'#c8e6c9',opacity:0.7},s);
  el('line',{x1:L,x2:W-R,y1:ly(D.target),y2:ly(D.target),stroke:'#2e7d32','stroke-dasharray':'4 3'},s);}
 for(var v=0;v>=-60;v-=10){el('line',{x1:L,x2:W-R,y1:ly(v),y2:ly(v),stroke:'#e1e5ea'},s);
  el('text',{x:L-6,y:ly(v)+4,'text-anchor':'end'},s).textContent=v+(v===0?' LUFS':'');}
 for(var v=0;v>=-60;v-=20){el('text',{x:L-6,y:py(v)+4,'text-anchor':'end'},s).textContent=v+(v===0?' dBFS':'');
  el('line',{x1:L,x2:W-R,y1:py(v),y2:py(v),stroke:'#e1e5ea'},s);}
 if(D.truePeakMax>-199)el('line',{x1:L,x2:W-R,y1:py(D.truePeakMax),y2:py(D.truePeakMax),stroke:'#c62828','stroke-dasharray':'4 3'},s);
 el('text',{x:8,y:top+LH/2},s).textContent='loudness';el('text',{x:8,y:py0+PH/2},s).textContent='peak';
 var clip=el('clipPath',{id:'c'},el('defs',{},s));el('rect',{x:L,y:0,width:W-L-R,height:H},clip);
 var g=el('g',{'clip-path':'url(#c)'},s);
 path(D.momentary,x,ly,g,'#8ecae6',1);path(D.shortTerm,x,ly,g,'#e76f51',1.6);path(D.peak,x,py,g,'#6a4c93',1);
 rules.forEach(function(r,k){var y=ry0+k*RH;
  el('rect',{x:L,y:y,width:W-L-R,height:RH-2,fill:k%2?'#f7f9fb':'#eef1f5'},s);
  el('rect',{x:8,y:y+3,width:10,height:10,fill:col(r)},s);
  el('text',{x:24,y:y+12},s).textContent=names[r];});
 var minW=3,bars=el('g',{'clip-path':'url(#c)'},s);
 D.events.forEach(function(e,i){var k=rules.indexOf(e.rule),x0=x(e.start),x1=x(e.end);
  if(x1<L-minW||x0>W-R)return;var w=Math.max(minW,x1-x0);
  var b=el('rect',{'class':'ev-bar','data-i':i,'data-rule':e.rule,x:x0,y:ry0+k*RH+1,width:w,height:RH-4,
   fill:col(e.rule),stroke:i===sel?'#000':'none','stroke-width':1.5},bars);
  b.addEventListener('click',function(ev){ev.stopPropagation();show(i);});
  el('title',{},b).textContent=e.name+' '+e.in+' - '+e.out;});
 var ay=ry0+Math.max(1,rules.length)*RH+4;el('line',{x1:L,x2:W-R,y1:ay,y2:ay,stroke:'#8a93a3'},s);
 el('text',{x:8,y:ay+18},s).textContent='time from start';
 var span=v1-v0,steps=[0.1,0.2,0.5,1,2,5,10,15,30,60,120,300,600,900,1800,3600],st=steps[steps.length-1];
 for(var q=0;q<steps.length;q++)if(span/steps[q]<=(W-L-R)/110){st=steps[q];break;}
 for(var t=Math.ceil(v0/st)*st;t<=v1+1e-9;t+=st){var px=x(t);el('line',{x1:px,x2:px,y1:ay,y2:ay+5,stroke:'#8a93a3'},s);
  el('line',{x1:px,x2:px,y1:top,y2:ay,stroke:'#000',opacity:0.05},s);
  el('text',{x:px,y:ay+18,'text-anchor':'middle'},s).textContent=tc(t);}
 document.getElementById('view').textContent='showing '+tc(v0)+' \u2013 '+tc(v1)+' of '+tc(T);}
function zoom(f,c){var span=Math.min(T,Math.max(1,(v1-v0)*f));if(c===undefined)c=(v0+v1)/2;
 var a=c-(c-v0)*span/(v1-v0);v0=Math.max(0,Math.min(T-span,a));v1=v0+span;draw();}
function pan(d){var span=v1-v0;v0=Math.max(0,Math.min(T-span,v0+d));v1=v0+span;draw();}
function timeAt(px){var W=Math.max(chart.clientWidth,600);return v0+(px-L)/(W-L-R)*(v1-v0);}
document.getElementById('zin').onclick=function(){zoom(0.5);};
document.getElementById('zout').onclick=function(){zoom(2);};
document.getElementById('left').onclick=function(){pan(-(v1-v0)/2);};
document.getElementById('right').onclick=function(){pan((v1-v0)/2);};
document.getElementById('all').onclick=function(){v0=0;v1=T;draw();};
chart.addEventListener('wheel',function(ev){ev.preventDefault();var r=chart.getBoundingClientRect();
 zoom(ev.deltaY<0?0.8:1.25,timeAt(ev.clientX-r.left));},{passive:false});
var drag=null;chart.addEventListener('mousedown',function(ev){drag={x:ev.clientX,a:v0};});
window.addEventListener('mouseup',function(){drag=null;});
window.addEventListener('mousemove',function(ev){if(!drag)return;var W=Math.max(chart.clientWidth,600);
 var d=(drag.x-ev.clientX)/(W-L-R)*(v1-v0),span=v1-v0;v0=Math.max(0,Math.min(T-span,drag.a+d));v1=v0+span;draw();});
window.addEventListener('resize',draw);
var tb=document.querySelector('#events tbody');
D.events.forEach(function(e,i){var tr=document.createElement('tr');tr.className='ev-row';tr.dataset.i=i;
 var cells=[e.rule,e.name,e.in,e.out,(e.end-e.start).toFixed(3),e.frames,e.channels,e.value.toPrecision(4)];
 cells.forEach(function(c,k){var td=document.createElement('td');td.textContent=c;if(k===0||k>3&&k!==6)td.className='num';
  if(k===1){var sw=document.createElement('span');sw.className='swatch';sw.style.background=col(e.rule);td.insertBefore(sw,td.firstChild);}
  tr.appendChild(td);});
 tr.addEventListener('click',function(){var span=Math.max(v1-v0,Math.min(T,(e.end-e.start)*4));
  var c=(e.start+e.end)/2;v0=Math.max(0,Math.min(T-span,c-span/2));v1=v0+span;show(i);});
 tb.appendChild(tr);});
var keys=[function(e){return e.rule;},function(e){return e.name;},function(e){return e.start;},function(e){return e.end;},
 function(e){return e.end-e.start;},function(e){return e.frames;},function(e){return e.channels;},function(e){return e.value;}];
var dir={};document.querySelectorAll('#events th').forEach(function(th,k){th.className='sort';th.onclick=function(){
 dir[k]=-(dir[k]||-1);var rows=Array.prototype.slice.call(tb.children);
 rows.sort(function(a,b){var x=keys[k](D.events[a.dataset.i]),y=keys[k](D.events[b.dataset.i]);return (x<y?-1:x>y?1:0)*dir[k];});
 rows.forEach(function(r){tb.appendChild(r);});};});
draw();
document.body.setAttribute('data-ready','1');document.getElementById('status').textContent='ready';
})();
)JS";

Json ReportJson(const ReportData &d) {
  Json events = Json::array();
  for (const ReportEvent &e : d.events)
    events.push_back(Json{{"rule", e.rule}, {"name", e.name}, {"in", e.in}, {"out", e.out}, {"start", e.start},
                          {"end", e.end}, {"frames", e.frames}, {"channels", e.channels}, {"value", e.value}});
  return Json{{"seconds", d.seconds},         {"step", kReportStep},     {"target", d.target},
              {"tolerance", d.tolerance},     {"truePeakMax", d.truePeakMax}, {"momentary", Curve(d.momentary)},
              {"shortTerm", Curve(d.shortTerm)}, {"peak", Curve(d.peak)}, {"events", events}};
}

std::string Duration(double seconds) {
  char buf[48];
  int whole = int(seconds);
  std::snprintf(buf, sizeof(buf), "%02d:%02d:%06.3f", whole / 3600, whole / 60 % 60, seconds - whole / 60 * 60);
  return buf;
}

std::string Head(const std::string &title) {
  return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<title>" + Escape(title) +
         "</title>\n<style>" + kStyle + "</style></head>\n<body>\n<pre id=\"errors\"></pre>\n";
}

}  // namespace

std::string HtmlReport(const ReportData &d) {
  std::string h = Head("QC " + d.file);
  h += "<h1>" + Escape(d.file) + "</h1>\n<div class=\"verdict " + std::string(d.passed ? "pass\">PASS" : "fail\">FAIL") +
       "</div>\n";
  if (!d.reasons.empty()) {
    h += "<ul class=\"reasons\">";
    for (const std::string &r : d.reasons) h += "<li>" + Escape(r) + "</li>";
    h += "</ul>\n";
  }
  auto info = [&](const std::string &k, const std::string &v) { h += "<div><span>" + k + "</span>" + Escape(v) + "</div>"; };
  h += "<div class=\"info\">";
  info("format", d.format);
  info("sample rate", std::to_string(d.rate) + " Hz");
  info("channels", std::to_string(d.channels) + (d.layout.empty() ? "" : " (" + d.layout + ")"));
  info("duration", Duration(d.seconds));
  info("start timecode", d.startTimecode);
  info("frame rate", d.fps + " fps");
  info("standard", d.standard.empty() ? "none" : d.standard);
  h += "</div>\n<h2>Loudness</h2>\n<table id=\"figures\"><thead><tr><th>measure</th><th>value</th><th>target</th>"
       "</tr></thead><tbody>\n";
  for (const ReportFigure &f : d.figures)
    h += "<tr><td>" + Escape(f.name) + "</td><td class=\"num" + std::string(f.ok ? "" : " bad") + "\">" + Num(f.value) +
         " " + f.unit + "</td><td>" + (f.target.empty() ? "&ndash;" : Escape(f.target)) + "</td></tr>\n";
  h += "</tbody></table>\n<h2>Timeline</h2>\n<div id=\"tools\"><button id=\"zin\">zoom in</button><button "
       "id=\"zout\">zoom out</button><button id=\"left\">&larr;</button><button id=\"right\">&rarr;</button><button "
       "id=\"all\">whole programme</button><span id=\"view\"></span><span><span class=\"swatch\" "
       "style=\"background:#8ecae6\"></span>momentary <span class=\"swatch\" style=\"background:#e76f51\"></span>"
       "short-term <span class=\"swatch\" style=\"background:#c8e6c9\"></span>target band <span class=\"swatch\" "
       "style=\"background:#6a4c93\"></span>sample peak</span></div>\n"
       "<div id=\"chart\"></div>\n<div id=\"detail\">click an event bar or row for its details; the wheel zooms, dragging pans</div>\n";
  h += "<h2>Events (" + std::to_string(d.events.size()) + ")</h2>\n<table id=\"events\"><thead><tr><th>#</th>"
       "<th>rule</th><th>in</th><th>out</th><th>duration s</th><th>frames</th><th>channels</th><th>value</th></tr>"
       "</thead><tbody></tbody></table>\n";
  h += "<h2>Channels</h2>\n<table id=\"channels\"><thead><tr><th>channel</th><th>peak dBFS</th><th>RMS dBFS</th>";
  if (d.channelMeters) h += "<th>true peak dBTP</th><th>loudness LUFS</th>";
  h += "</tr></thead><tbody>\n";
  for (size_t c = 0; c < d.perChannel.size(); ++c) {
    const ReportChannel &ch = d.perChannel[c];
    h += "<tr><td>" + std::to_string(c + 1) + "</td><td class=\"num\">" + Num(ch.peak) + "</td><td class=\"num\">" +
         Num(ch.rms) + "</td>";
    if (d.channelMeters)
      h += "<td class=\"num\">" + Num(ch.truePeak) + "</td><td class=\"num\">" + Num(ch.loudness) + "</td>";
    h += "</tr>\n";
  }
  h += "</tbody></table>\n<p id=\"status\">the report needs JavaScript for its timeline and event table</p>\n";
  h += "<script type=\"application/json\" id=\"data\">" + ScriptJson(ReportJson(d)) + "</script>\n<script>" + kScript +
       "</script>\n</body></html>\n";
  return h;
}

std::string HtmlIndex(const std::vector<IndexEntry> &entries) {
  size_t failed = 0;
  for (const IndexEntry &e : entries) failed += !e.passed;
  std::string h = Head("QC index");
  h += "<h1>QC: " + std::to_string(entries.size()) + " programmes, " + std::to_string(entries.size() - failed) +
       " passed, " + std::to_string(failed) + " failed</h1>\n<table id=\"index\"><thead><tr><th>programme</th>"
       "<th>verdict</th><th>integrated LUFS</th><th>range LU</th><th>true peak dBTP</th><th>events</th>"
       "<th>events by rule</th></tr></thead><tbody>\n";
  for (const IndexEntry &e : entries) {
    std::string name = e.link.empty() ? Escape(e.file) : "<a href=\"" + Escape(e.link) + "\">" + Escape(e.file) + "</a>";
    if (!e.error.empty()) {
      h += "<tr class=\"prog\"><td>" + name + "</td><td class=\"bad\">ERROR</td><td colspan=\"5\">" + Escape(e.error) +
           "</td></tr>\n";
      continue;
    }
    std::string rules;
    for (const auto &[rule, count] : e.perRule) rules += (rules.empty() ? "" : ", ") + Escape(rule) + " " + std::to_string(count);
    h += "<tr class=\"prog\"><td>" + name + "</td><td class=\"" + (e.passed ? "\">PASS" : "bad\">FAIL") +
         "</td><td class=\"num\">" + Num(e.integrated) + "</td><td class=\"num\">" + Num(e.range) +
         "</td><td class=\"num\">" + Num(e.truePeak) + "</td><td class=\"num\">" + std::to_string(e.events) + "</td><td>" +
         rules + "</td></tr>\n";
  }
  h += "</tbody></table>\n<p id=\"status\">ready</p>\n<script>document.body.setAttribute('data-ready','1');</script>\n"
       "</body></html>\n";
  return h;
}

void WriteTextFile(const std::string &path, const std::string &text) {
  std::ofstream out(path, std::ios::binary);
  out.write(text.data(), std::streamsize(text.size()));
  out.close();
  if (!out) throw FileError(path, "cannot be written");
}

}  // namespace kvtool
